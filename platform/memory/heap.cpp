// The counted heap: each block says before it how long it is and whose; see platform/include/tds.h.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

#include "tds.h"

namespace {

struct alignas(std::max_align_t) Head {
  size_t size;
  const char *tag;
};

struct Sum {
  size_t blocks, bytes;
};

/* For ever: threads may still free while the process ends. */
std::mutex &mutex = *new std::mutex;
std::map<std::string, Sum> &sums = *new std::map<std::string, Sum>;

void *Counted(Head *head, size_t size, const char *tag) {
  *head = {size, tag};
  std::lock_guard<std::mutex> lock(mutex);
  Sum &sum = sums[tag];
  ++sum.blocks;
  sum.bytes += size;
  return head + 1;
}

Head *Uncounted(void *block) {
  Head *head = static_cast<Head *>(block) - 1;
  std::lock_guard<std::mutex> lock(mutex);
  Sum &sum = sums[head->tag];
  --sum.blocks;
  sum.bytes -= head->size;
  return head;
}

}  // namespace

void *__tds_malloc(size_t size, const char *tag) {
  if (size > SIZE_MAX - sizeof(Head)) return nullptr;
  auto *head = static_cast<Head *>(malloc(sizeof(Head) + size));
  return head == nullptr ? nullptr : Counted(head, size, tag);
}

void *__tds_realloc(void *block, size_t size, const char *tag) {
  if (block == nullptr) return __tds_malloc(size, tag);
  const Head old = static_cast<Head *>(block)[-1];
  void *grown = __tds_malloc(size, old.tag);
  if (grown == nullptr) return nullptr; /* the block stays */
  memcpy(grown, block, size < old.size ? size : old.size);
  __tds_free(block);
  return grown;
}

void __tds_free(void *block) {
  if (block != nullptr) free(Uncounted(block));
}

char *__tds_strdup(const char *text, const char *tag) {
  return __tds_strndup(text, strlen(text), tag);
}

char *__tds_strndup(const char *text, size_t length, const char *tag) {
  auto *copy = static_cast<char *>(__tds_malloc(length + 1, tag));
  if (copy == nullptr) return nullptr;
  memcpy(copy, text, length);
  copy[length] = '\0';
  return copy;
}

void tds_show_malloc(void) {
  std::lock_guard<std::mutex> lock(mutex);
  Sum all = {0, 0};
  for (const auto &[tag, sum] : sums) {
    printf("%s: %zu blocks, %zu bytes\n", tag.c_str(), sum.blocks, sum.bytes);
    all.blocks += sum.blocks;
    all.bytes += sum.bytes;
  }
  printf("total: %zu blocks, %zu bytes\n", all.blocks, all.bytes);
}
