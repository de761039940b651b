// The board's non-volatile settings: KEY=value texts in two areas.
//
// A value set is seen by every process at once; it survives a power cut once its area has been
// committed. All calls may come from any thread of any process of the gateway.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

enum {
  NVTYPE_STAGING = 1, /* area 1: changed parameters by path, and what the clients keep there */
  NVTYPE_BASIC = 2,   /* area 2: basic settings of the board (boot type, versions, addresses) */
};

enum {
  NVRAM_KEY_MAX = 400,         /* bytes of a key, at least one */
  NVRAM_VALUE_MAX = 32 * 1024, /* of a value; neither has a NUL */
};

/* Attaches this process to the settings, and loads them from flash when it is the first since the
   gateway started. A flash that is damaged does not stop it: an earlier commit is used, or none,
   and the log says what is lost. 0, or -1 (logged) when there is no room for the settings in use.
   The other calls attach by themselves. */
int nvram_init_semaphore(void);

/* A heap copy of the value of `key` in area `type` (freed with free() by the caller), or NULL when
   it is not set. */
char *nvram_get(const char *key, int type);

/* Sets `key` to `value` in area `type`. 0, or -1 (logged). */
int nvram_set(const char *key, const char *value, int type);

/* Removes `key`. 0 also when it was not set; -1 (logged) for a bad area or a failing store. */
int nvram_unset(const char *key, int type);

/* Makes area `type` as it is now survive a power cut, in one atomic step; flash is not written when
   it holds the area already. 0, or -1 (logged): flash holds the commit before, and the settings in
   use stay. */
int nvram_commit(int type);

/* Removes every key of area `type` (kept in flash until the next commit). 0 or -1 (logged). */
int nvram_clean(int type);

/* Calls `visit` for every key of area `type` that starts with `prefix`, in byte order, on a
   snapshot. `visit` may set and unset keys; it ends the walk by returning non-zero. Returns that
   value, else 0; -1 (logged) when the settings cannot be read. */
int nvram_walk(int type, const char *prefix,
               int (*visit)(const char *key, const char *value, void *context), void *context);

#ifdef __cplusplus
}
#endif
