// Start-up: attaching to the shared store as a client, the store server's bring-up with its boot
// types, and what follows once the module threads run. Main thread only.
#pragma once

#include "tds.h"

/* Exported by the daemon: its module table. */
extern const ModuleEntry kSysmgrModules[];

/* Attaches to the store; succeeds at once when gptXmlTrees is set. 0 or -1 (logged). */
int SDB_clientInit();

/* Brings the store up as its server: loads the data-model file, checks the firmware version, lays
   the saved parameters of the boot type over the tree. 0; -1 (logged) when the store or the file
   cannot be had; another non-zero value for an invalid boot type. A file that does not parse leaves
   the root NULL and does not fail by itself. Clients see the new tree in one step; when there is
   none or the boot type is invalid, the tree that was there stays. */
int SDB_serverInit();

/* Boot types, from nvram key "factoryType". */
enum {
  BOOT_INVALID = 0,
  BOOT_BURN_IMAGE = 1, /* first start from a freshly burnt image: the key is absent */
  BOOT_RESTART = 2,    /* "false" */
  BOOT_RESTORE = 3,    /* "true": from the backup configuration */
  BOOT_CLEAN = 4,      /* "clean": factory defaults */
};
/* Without the key it is kept in nvram that the image is new (X_KVO-UserChange). */
int get_boot_type();

/* Clears the trace switch and records the firmware's build time. Returns 0. */
int process_init_after();

/* The daemon's whole start-up; returns -1 when it fails and else never. */
int sysmgr_main();
