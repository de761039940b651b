// The system-management daemon. All of it is in the libraries, so that tests can link it.
#include <cstdio>
#include <cstring>

#include "sup_main.h"

int main(int argc, char **argv) {
  /* Who asks for its version does not want a gateway. Nothing else is read. */
  if (argc == 2 && strcmp(argv[1], "--version") == 0) return puts("sysmgr " SYSMGR_VERSION) < 0;
  return sysmgr_main();
}
