// The system-management daemon. All of it is in the libraries, so that tests can link it.
#include "sup_main.h"

int main() { return sysmgr_main(); }
