// Notifications that a module has asked for.
#pragma once

struct Module;

/* Asks once more for all of them. 0, or -1 (logged): not for all. The module's thread. */
int NotifyAskAgain(Module *module);
