// The counted heap: each block carries the row of its tag, and each row its live blocks and bytes.
#include "tds_heap.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tds.h"

namespace {

constexpr uint32_t kMagic = 0x5AFEB10C;
constexpr uint32_t kRowBits = 9;
constexpr uint32_t kRows = 1 << kRowBits; /* the last one counts what finds no row */

struct TagRow {
  std::atomic<const char *> tag;
  std::atomic<ptrdiff_t> blocks, bytes; /* a word: not every processor adds more at once */
};

struct alignas(max_align_t) BlockHead {
  uint32_t magic;
  uint32_t row;
  size_t size;
};

TagRow rows[kRows];

/* Rows are claimed once and never given back, so that a look-up needs no lock. The same tag may
   stand at several places of the program, with a row each. */
uint32_t RowOf(const char *tag) {
  uint32_t start =
      static_cast<uint32_t>(reinterpret_cast<uintptr_t>(tag)) * 2654435769U >> (32 - kRowBits);
  for (uint32_t step = 0; step < kRows - 1; ++step) {
    uint32_t row = (start + step) % (kRows - 1);
    const char *held = rows[row].tag.load(std::memory_order_acquire);
    if (held == nullptr && rows[row].tag.compare_exchange_strong(held, tag)) return row;
    if (held == tag) return row;
  }
  return kRows - 1;
}

/* Whether an earlier row has the same tag. */
bool IsRepeated(const TagRow *row, const char *tag) {
  for (const TagRow *other = rows; other != row; ++other) {
    const char *held = other->tag.load(std::memory_order_acquire);
    if (held != nullptr && strcmp(held, tag) == 0) return true;
  }
  return false;
}

TdsMallocCount CountOf(const TagRow &row) {
  return {row.blocks.load(std::memory_order_relaxed), row.bytes.load(std::memory_order_relaxed)};
}

void Count(const BlockHead *head, ptrdiff_t sign) {
  rows[head->row].blocks.fetch_add(sign, std::memory_order_relaxed);
  rows[head->row].bytes.fetch_add(sign * static_cast<ptrdiff_t>(head->size),
                                  std::memory_order_relaxed);
}

BlockHead *HeadOf(void *block) {
  BlockHead *head = static_cast<BlockHead *>(block) - 1;
  if (head->magic != kMagic) {
    fprintf(stderr, "__tds_free: %p is not a block of the counted heap\n", block);
    abort();
  }
  return head;
}

}  // namespace

void *__tds_malloc(size_t size, const char *tag) {
  if (size > SIZE_MAX - sizeof(BlockHead)) return nullptr;
  BlockHead *head = static_cast<BlockHead *>(malloc(sizeof(BlockHead) + size));
  if (head == nullptr) return nullptr;
  *head = {kMagic, RowOf(tag), size};
  Count(head, 1);
  return head + 1;
}

void *__tds_realloc(void *block, size_t size, const char *tag) {
  if (block == nullptr) return __tds_malloc(size, tag);
  if (size > SIZE_MAX - sizeof(BlockHead)) return nullptr;
  BlockHead *old = HeadOf(block);
  BlockHead before = *old;
  BlockHead *head = static_cast<BlockHead *>(realloc(old, sizeof(BlockHead) + size));
  if (head == nullptr) return nullptr;
  Count(&before, -1);
  head->size = size;
  Count(head, 1);
  return head + 1;
}

void __tds_free(void *block) {
  if (block == nullptr) return;
  BlockHead *head = HeadOf(block);
  Count(head, -1);
  head->magic = 0;
  free(head);
}

char *__tds_strndup(const char *text, size_t length, const char *tag) {
  char *copy = static_cast<char *>(__tds_malloc(length + 1, tag));
  if (copy == nullptr) return nullptr;
  memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

char *__tds_strdup(const char *text, const char *tag) {
  return __tds_strndup(text, strlen(text), tag);
}

void tds_show_malloc(void) {
  TdsMallocCount sum = tds_malloc_count(nullptr);
  printf("%-40s %10s %12s\n", "tag", "blocks", "bytes");
  for (const TagRow &row : rows) {
    const char *tag = row.tag.load(std::memory_order_acquire);
    if (tag != nullptr && IsRepeated(&row, tag)) continue;
    TdsMallocCount count = tag != nullptr ? tds_malloc_count(tag) : CountOf(row);
    if (count.blocks == 0) continue;
    printf("%-40s %10td %12td\n", tag == nullptr ? "(other)" : tag, count.blocks, count.bytes);
  }
  printf("%-40s %10td %12td\n", "total", sum.blocks, sum.bytes);
  fflush(stdout);
}

TdsMallocCount tds_malloc_count(const char *tag) {
  TdsMallocCount count = {};
  for (const TagRow &row : rows) {
    const char *held = row.tag.load(std::memory_order_acquire);
    if (tag != nullptr && (held == nullptr || strcmp(held, tag) != 0)) continue;
    count.blocks += CountOf(row).blocks;
    count.bytes += CountOf(row).bytes;
  }
  return count;
}
