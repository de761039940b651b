// What the desk's counted heap tells its tests and measurements beside the board's interface.
#pragma once

#include <cstddef>

/* Live blocks and bytes of `tag`, or of all tags when it is NULL. */
struct TdsMallocCount {
  ptrdiff_t blocks;
  ptrdiff_t bytes;
};
TdsMallocCount tds_malloc_count(const char *tag);
