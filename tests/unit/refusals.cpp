// The allocators that refuse; see refusals.h.
#include "refusals.h"

#include <cerrno>
#include <cstdlib>
#include <new>

namespace {

bool Refused() {
  if (!refusals.counting) return false;
  ++refusals.count;
  if (refusals.count < refusals.first || refusals.count > refusals.last) return false;
  errno = ENOMEM;
  return true;
}

}  // namespace

#ifdef REFUSALS_LINKED /* to the program's own calls, by the linker */
#define ALLOCATOR(name) __wrap_##name
#define REAL(name)      __real_##name
#else
#define ALLOCATOR(name) name
#define REAL(name)      __libc_##name
#endif

extern "C" {
void *REAL(malloc)(size_t size);
void *REAL(calloc)(size_t count, size_t size);
void *REAL(realloc)(void *block, size_t size);
void *ALLOCATOR(malloc)(size_t size);
void *ALLOCATOR(calloc)(size_t count, size_t size);
void *ALLOCATOR(realloc)(void *block, size_t size);

void *ALLOCATOR(malloc)(size_t size) { return Refused() ? nullptr : REAL(malloc)(size); }
void *ALLOCATOR(calloc)(size_t count, size_t size) {
  return Refused() ? nullptr : REAL(calloc)(count, size);
}
void *ALLOCATOR(realloc)(void *block, size_t size) {
  return Refused() ? nullptr : REAL(realloc)(block, size);
}
}

#ifdef REFUSALS_LINKED /* the C++ library's own is not */
void *operator new(size_t size) {
  void *block = Refused() ? nullptr : REAL(malloc)(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void *operator new(size_t size, const std::nothrow_t &) noexcept {
  return Refused() ? nullptr : REAL(malloc)(size);
}
void operator delete(void *block) noexcept { free(block); }
void operator delete(void *block, size_t) noexcept { free(block); }
#endif
