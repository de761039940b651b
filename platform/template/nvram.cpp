// The board's settings; see platform/include/nvram.h. None of it is there yet.
#include "nvram.h"

#include "refuse.h"

int nvram_init_semaphore(void) { REFUSE(-1); }

char *nvram_get(const char *, int) { REFUSE(nullptr); }

int nvram_set(const char *, const char *, int) { REFUSE(-1); }

int nvram_unset(const char *, int) { REFUSE(-1); }

int nvram_commit(int) { REFUSE(-1); }

int nvram_clean(int) { REFUSE(-1); }

int nvram_walk(int, const char *, int (*)(const char *, const char *, void *), void *) {
  REFUSE(-1);
}
