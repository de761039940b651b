// The settings store on a desk: a working copy in shared memory, which every process reads and
// writes, and a flash copy that a commit brings up to date. What the keys mean is its users'
// affair.
#include "nvram.h"

#include <lmdb.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>

#include "desk_log.h"
#include "lmdb_env.h"
#include "nvram_desk.h"

/* Keys of the working copy: a mark, the area's digit, the setting's key. Flash has kValue alone. */
namespace {

#define NVRAM_LOG(...) DESK_LOG("platform/nvram", __VA_ARGS__)

constexpr char kValue = 'v';
constexpr char kDirty = 'd';    // set or unset since the area's last commit; no value
constexpr char kCleaned = 'c';  // the area was cleaned since then; key empty
constexpr char kLoaded[] = "loaded", kLoadedValue[] = "1";
constexpr size_t kKeyMax = 400, kValueMax = 32 * 1024;

/* Flash needs room for an area twice while it is written, hence the larger map. */
const LmdbPlace kWorkPlace = {"/dev/shm/nvram", 64 << 20, MDB_WRITEMAP | MDB_NOSYNC};
const LmdbPlace kFlashPlace = {"/var/nvram", 192 << 20, 0};

std::mutex gOpening;
LmdbEnv gWork, gFlash;  // under gOpening until open; for the life of the process

int Failed(const char *what, const char *where, int rc) {
  NVRAM_LOG("nvram: %s %s failed: %s\n", what, where, mdb_strerror(rc));
  return -1;
}

std::string RowKey(char mark, int type, std::string_view key) {
  std::string row{mark, static_cast<char>('0' + type)};
  return row.append(key);
}

bool StartsWith(const MDB_val &text, std::string_view prefix) {
  return text.mv_size >= prefix.size() &&
         (prefix.empty() || memcmp(text.mv_data, prefix.data(), prefix.size()) == 0);
}

int Put(MDB_txn *txn, const LmdbEnv &env, std::string_view key, std::string_view value) {
  MDB_val row = LmdbVal(key.data(), key.size()), data = LmdbVal(value.data(), value.size());
  return mdb_put(txn, env.dbi, &row, &data, 0);
}

int Delete(MDB_txn *txn, const LmdbEnv &env, std::string_view key) {
  MDB_val row = LmdbVal(key.data(), key.size());
  int rc = mdb_del(txn, env.dbi, &row, nullptr);
  return rc == MDB_NOTFOUND ? 0 : rc;
}

/* Calls `each(cursor, key, value)` for the rows that start with `prefix`; stops at non-zero. */
template <class Each>
int ForRows(MDB_txn *txn, const LmdbEnv &env, std::string_view prefix, Each each) {
  MDB_cursor *cursor = nullptr;
  int rc = mdb_cursor_open(txn, env.dbi, &cursor);
  if (rc != 0) return rc;
  MDB_val key = LmdbVal(prefix.data(), prefix.size()), value;
  MDB_cursor_op op = prefix.empty() ? MDB_FIRST : MDB_SET_RANGE;
  while ((rc = mdb_cursor_get(cursor, &key, &value, op)) == 0 && StartsWith(key, prefix)) {
    if ((rc = each(cursor, key, value)) != 0) break;
    op = MDB_NEXT;
  }
  mdb_cursor_close(cursor);
  return rc == MDB_NOTFOUND ? 0 : rc;
}

int DeleteRows(MDB_txn *txn, const LmdbEnv &env, const std::string &prefix) {
  return ForRows(txn, env, prefix, [](MDB_cursor *cursor, const MDB_val &, const MDB_val &) {
    return mdb_cursor_del(cursor, 0);
  });
}

/* Opens flash when it is not open yet; damaged files are moved aside and a new flash is begun. */
int OpenFlash() {
  if (gFlash.env != nullptr) return 0;
  int rc = LmdbOpen(kFlashPlace, true, &gFlash);
  if (rc == MDB_INVALID || rc == MDB_VERSION_MISMATCH || rc == MDB_CORRUPTED) {
    std::string data = std::string(kFlashPlace.folder) + "/data.mdb";
    NVRAM_LOG("nvram: %s is damaged, kept as %s.bad; starting empty\n", data.c_str(), data.c_str());
    if (rename(data.c_str(), (data + ".bad").c_str()) != 0) LmdbRemove(kFlashPlace);
    rc = LmdbOpen(kFlashPlace, true, &gFlash);
  }
  return rc == 0 ? 0 : Failed("opening", kFlashPlace.folder, rc);
}

/* Copies flash into the working copy. A flash that cannot be read counts as empty: the gateway then
   starts with defaults, and what flash holds stays as it is but for what is committed. */
int LoadFlash(MDB_txn *work) {
  MDB_txn *flash = nullptr;
  if (OpenFlash() != 0) return 0;
  int rc = LmdbBegin(gFlash, MDB_RDONLY, &flash);
  if (rc != 0) return rc;
  rc = ForRows(flash, gFlash, "", [work](MDB_cursor *, MDB_val &key, MDB_val &value) {
    return mdb_put(work, gWork.dbi, &key, &value, 0);
  });
  mdb_txn_abort(flash);
  return rc;
}

/* The first process loads from flash; the write transaction makes the others wait for it. */
int LoadOnce() {
  MDB_txn *txn = nullptr;
  MDB_val key = LmdbVal(kLoaded, sizeof kLoaded - 1), value;
  int rc = LmdbBegin(gWork, 0, &txn);
  if (rc != 0) return rc;
  rc = mdb_get(txn, gWork.dbi, &key, &value);
  if (rc == MDB_NOTFOUND) {
    rc = LoadFlash(txn);
    if (rc == 0) rc = Put(txn, gWork, kLoaded, kLoadedValue);
    if (rc == 0) return mdb_txn_commit(txn);
  }
  mdb_txn_abort(txn);
  return rc;
}

int OpenWork() {
  int rc = LmdbOpen(kWorkPlace, true, &gWork);
  if (rc == MDB_INVALID || rc == MDB_VERSION_MISMATCH || rc == MDB_CORRUPTED) {
    NVRAM_LOG("nvram: %s is damaged; loading it anew from flash\n", kWorkPlace.folder);
    LmdbRemove(kWorkPlace);
    rc = LmdbOpen(kWorkPlace, true, &gWork);
  }
  if (rc == 0 && (rc = LoadOnce()) != 0) LmdbClose(&gWork);
  return rc;
}

int Attach() {
  std::lock_guard<std::mutex> guard(gOpening);
  if (gWork.env != nullptr) return 0;
  int rc = OpenWork();
  return rc == 0 ? 0 : Failed("opening", kWorkPlace.folder, rc);
}

int CheckCall(int type, const char *key) {
  if (type != NVTYPE_STAGING && type != NVTYPE_BASIC) {
    NVRAM_LOG("nvram: area %d is neither 1 nor 2\n", type);
    return -1;
  }
  size_t length = key == nullptr ? 0 : strnlen(key, kKeyMax + 1);
  if (length == 0 || length > kKeyMax) {
    NVRAM_LOG("nvram: a key has 1 to %zu bytes: \"%.64s\"\n", kKeyMax, key == nullptr ? "" : key);
    return -1;
  }
  return Attach();
}

/* Runs `work(txn)` in one write transaction of the working copy; commits when it returns 0. */
template <class Work>
int Write(const char *what, Work work) {
  MDB_txn *txn = nullptr;
  int rc = LmdbBegin(gWork, 0, &txn);
  if (rc == 0 && (rc = work(txn)) == 0)
    rc = mdb_txn_commit(txn);
  else if (txn != nullptr)
    mdb_txn_abort(txn);
  return rc == 0 ? 0 : Failed(what, kWorkPlace.folder, rc);
}

/* Writes the differences of an area into flash's transaction. Doing it twice changes nothing. */
int CopyDirty(MDB_txn *work, MDB_txn *flash, int type) {
  MDB_val cleaned, none;
  std::string mark = RowKey(kCleaned, type, "");
  cleaned = LmdbVal(mark.data(), mark.size());
  int rc = mdb_get(work, gWork.dbi, &cleaned, &none);
  if (rc == 0) rc = DeleteRows(flash, gFlash, RowKey(kValue, type, ""));
  if (rc != 0 && rc != MDB_NOTFOUND) return rc;
  return ForRows(work, gWork, RowKey(kDirty, type, ""),
                 [=](MDB_cursor *, const MDB_val &key, const MDB_val &) {
                   std::string row(static_cast<char *>(key.mv_data), key.mv_size);
                   row[0] = kValue;
                   MDB_val wanted = LmdbVal(row.data(), row.size()), value;
                   int found = mdb_get(work, gWork.dbi, &wanted, &value);
                   if (found == MDB_NOTFOUND) return Delete(flash, gFlash, row);
                   return found != 0 ? found : mdb_put(flash, gFlash.dbi, &wanted, &value, 0);
                 });
}

/* Flash first, then the marks: whoever is killed between leaves marks that are written once more.
 */
int CommitArea(MDB_txn *work, int type) {
  MDB_txn *flash = nullptr;
  int rc = LmdbBegin(gFlash, 0, &flash);
  if (rc != 0) return rc;
  rc = CopyDirty(work, flash, type);
  if (rc != 0) {
    mdb_txn_abort(flash);
    return rc;
  }
  rc = mdb_txn_commit(flash);
  if (rc == 0) rc = DeleteRows(work, gWork, RowKey(kDirty, type, ""));
  if (rc == 0) rc = Delete(work, gWork, RowKey(kCleaned, type, ""));
  return rc;
}

}  // namespace

int nvram_init_semaphore(void) { return Attach(); }

char *nvram_get(const char *key, int type) {
  MDB_txn *txn = nullptr;
  char *text = nullptr;
  if (CheckCall(type, key) != 0) return nullptr;
  int rc = LmdbBegin(gWork, MDB_RDONLY, &txn);
  if (rc == 0) {
    std::string row = RowKey(kValue, type, key);
    MDB_val wanted = LmdbVal(row.data(), row.size()), value;
    rc = mdb_get(txn, gWork.dbi, &wanted, &value);
    if (rc == 0) text = strndup(static_cast<char *>(value.mv_data), value.mv_size);
    mdb_txn_abort(txn);
  }
  if (rc != 0 && rc != MDB_NOTFOUND) (void)Failed("reading", key, rc); /* NULL says it */
  return text;
}

int nvram_set(const char *key, const char *value, int type) {
  if (CheckCall(type, key) != 0) return -1;
  if (value == nullptr || strnlen(value, kValueMax + 1) > kValueMax) {
    NVRAM_LOG("nvram: the value of \"%s\" is missing or longer than %zu bytes\n", key, kValueMax);
    return -1;
  }
  return Write("writing", [=](MDB_txn *txn) {
    int rc = Put(txn, gWork, RowKey(kValue, type, key), value);
    return rc != 0 ? rc : Put(txn, gWork, RowKey(kDirty, type, key), "");
  });
}

int nvram_unset(const char *key, int type) {
  if (CheckCall(type, key) != 0) return -1;
  return Write("writing", [=](MDB_txn *txn) {
    int rc = Delete(txn, gWork, RowKey(kValue, type, key));
    return rc != 0 ? rc : Put(txn, gWork, RowKey(kDirty, type, key), "");
  });
}

int nvram_commit(int type) {
  if (CheckCall(type, "-") != 0) return -1;
  {
    std::lock_guard<std::mutex> guard(gOpening);
    if (OpenFlash() != 0) return -1;
  }
  return Write("committing to flash from", [=](MDB_txn *txn) { return CommitArea(txn, type); });
}

int nvram_clean(int type) {
  if (CheckCall(type, "-") != 0) return -1;
  return Write("cleaning", [=](MDB_txn *txn) {
    int rc = DeleteRows(txn, gWork, RowKey(kValue, type, ""));
    if (rc == 0) rc = DeleteRows(txn, gWork, RowKey(kDirty, type, ""));
    return rc != 0 ? rc : Put(txn, gWork, RowKey(kCleaned, type, ""), "");
  });
}

int nvram_walk(int type, const char *prefix,
               int (*visit)(const char *key, const char *value, void *context), void *context) {
  MDB_txn *txn = nullptr;
  int result = 0;
  if (CheckCall(type, "-") != 0) return -1;
  int rc = LmdbBegin(gWork, MDB_RDONLY, &txn);
  if (rc == 0) {
    std::string rows = RowKey(kValue, type, prefix == nullptr ? "" : prefix);
    rc = ForRows(txn, gWork, rows, [&](MDB_cursor *, const MDB_val &row, const MDB_val &data) {
      std::string key(static_cast<char *>(row.mv_data) + 2, row.mv_size - 2);
      std::string value(static_cast<char *>(data.mv_data), data.mv_size);
      result = visit(key.c_str(), value.c_str(), context);
      return result != 0 ? MDB_NOTFOUND : 0; /* ends the walk without an error */
    });
    mdb_txn_abort(txn);
  }
  return rc == 0 ? result : Failed("reading", kWorkPlace.folder, rc);
}

int nvram_desk_apply(int type, const std::vector<NvramChange> &changes) {
  int result = 0;
  for (const NvramChange &change : changes)
    result |= change.value ? nvram_set(change.key.c_str(), change.value->c_str(), type)
                           : nvram_unset(change.key.c_str(), type);
  return result != 0 ? -1 : nvram_commit(type);
}
