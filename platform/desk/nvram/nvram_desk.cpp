// The settings store on a desk: a working copy in shared memory, which every process reads and
// writes; a commit writes an area of it to flash (flash.cpp). What the keys mean is its users'
// affair.
#include "nvram_desk.h"

#include <lmdb.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "ams_print.h"
#include "flash.h"
#include "lmdb_env.h"
#include "lmdb_readers.h"
#include "nvram.h"

/* Keys of the working copy: the area's digit, then the setting's key; and kLoaded. */
namespace {

constexpr char kLoaded[] = "loaded", kLoadedValue[] = "1";

/* Short records take four times as much room here as on flash. No MDB_WRITEMAP: writing to a file
   system that is full is then an error and not a signal. */
const LmdbPlace kWorkPlace = {"/dev/shm/nvram", 8 * kFlashMax, MDB_NOSYNC};

std::mutex opening;
LmdbEnv work_copy;  // under opening until open; for the life of the process

/* EIO: half a page found room. */
bool IsFull(int rc) { return rc == ENOSPC || rc == EIO || rc == MDB_MAP_FULL; }

int Failed(const char *what, const char *where, int rc) {
  AMS_PRINT(4, "nvram: %s %s failed: %s%s\n", what, where, mdb_strerror(rc),
            IsFull(rc) ? "; make room there" : "");
  return -1;
}

/* What `work` returns; an ENOMEM of `work` where it is for memory of its own. */
template <class Work>
int OrNoMemory(Work work) {
  try {
    return work();
  } catch (const std::bad_alloc &) {
    return ENOMEM;
  }
}

/* A transaction of the working copy, given up unless it is committed. */
struct Transaction {
  MDB_txn *txn = nullptr;
  int Begin(unsigned flags) { return LmdbBegin(work_copy, flags, &txn); }
  int Commit() { return mdb_txn_commit(std::exchange(txn, nullptr)); } /* ends it in any case */
  ~Transaction() {
    if (txn != nullptr) mdb_txn_abort(txn);
  }
};

std::string RowKey(int type, std::string_view key) {
  return std::string(1, static_cast<char>('0' + type)).append(key);
}

std::string_view Text(const MDB_val &val) {
  return {static_cast<char *>(val.mv_data), val.mv_size};
}

int Put(MDB_txn *txn, std::string_view row, std::string_view value) {
  MDB_val key = LmdbVal(row.data(), row.size()), data;
  if (mdb_get(txn, work_copy.dbi, &key, &data) == 0 && Text(data) == value) return 0;
  data = LmdbVal(value.data(), value.size());
  return mdb_put(txn, work_copy.dbi, &key, &data, 0);
}

int Delete(MDB_txn *txn, std::string_view row) {
  MDB_val key = LmdbVal(row.data(), row.size());
  int rc = mdb_del(txn, work_copy.dbi, &key, nullptr);
  return rc == MDB_NOTFOUND ? 0 : rc;
}

/* Calls `each(cursor, key, value)` for the settings of an area whose keys start with `prefix`;
   stops at non-zero. */
template <class Each>
int ForSettings(MDB_txn *txn, int type, std::string_view prefix, Each each) {
  MDB_cursor *cursor = nullptr;
  const std::string rows = RowKey(type, prefix);
  int rc = mdb_cursor_open(txn, work_copy.dbi, &cursor);
  if (rc != 0) return rc;
  const std::unique_ptr<MDB_cursor, decltype(&mdb_cursor_close)> owned(cursor, mdb_cursor_close);
  MDB_val row = LmdbVal(rows.data(), rows.size()), value;
  MDB_cursor_op op = MDB_SET_RANGE;
  while ((rc = mdb_cursor_get(cursor, &row, &value, op)) == 0 &&
         Text(row).substr(0, rows.size()) == rows) {
    if ((rc = each(cursor, Text(row).substr(1), Text(value))) != 0) break;
    op = MDB_NEXT;
  }
  return rc == MDB_NOTFOUND ? 0 : rc;
}

/* The settings as flash keeps them. */
int ReadRecords(MDB_txn *txn, int type, std::string_view prefix, std::string *records) {
  return ForSettings(txn, type, prefix,
                     [records](MDB_cursor *, std::string_view key, std::string_view value) {
                       records->append(key).append(1, '\0').append(value).append(1, '\0');
                       return 0;
                     });
}

int LoadArea(MDB_txn *txn, int type) {
  std::string records;
  int rc = FlashLoad(type, &records);
  std::string_view rest = records, key, value;
  while (rc == 0 && FlashNext(&rest, &key, &value)) rc = Put(txn, RowKey(type, key), value);
  return rc;
}

/* The first process loads from flash; the write transaction makes the others wait for it. */
int LoadOnce() {
  Transaction write;
  MDB_val key = LmdbVal(kLoaded, sizeof kLoaded - 1), value;
  int rc = write.Begin(0);
  if (rc != 0) return rc;
  rc = mdb_get(write.txn, work_copy.dbi, &key, &value);
  if (rc != MDB_NOTFOUND) return rc;
  rc = LoadArea(write.txn, NVTYPE_STAGING);
  if (rc == 0) rc = LoadArea(write.txn, NVTYPE_BASIC);
  if (rc == 0) rc = Put(write.txn, kLoaded, kLoadedValue);
  return rc == 0 ? write.Commit() : rc;
}

/* A working copy that somebody has open is not taken away: his changes and ours would part. 0 or -1
   (logged). */
int RemoveDamaged() {
  const std::string user = LmdbUser(kWorkPlace);
  if (user.empty()) {
    AMS_PRINT(4, "nvram: %s is damaged; loading it anew from flash\n", kWorkPlace.folder);
    LmdbRemove(kWorkPlace);
    return 0;
  }
  AMS_PRINT(4, "nvram: %s is damaged, and %s\n", kWorkPlace.folder, user.c_str());
  return -1;
}

/* 0 or -1 (logged). */
int OpenWork() {
  auto open = [] { return LmdbOpen(kWorkPlace, true, &work_copy); };
  int rc = OrNoMemory(open);
  if (rc == MDB_INVALID || rc == MDB_VERSION_MISMATCH || rc == MDB_CORRUPTED) {
    if (RemoveDamaged() != 0) return -1;
    rc = OrNoMemory(open);
  }
  if (rc == 0) rc = mdb_reader_check(work_copy.env, nullptr); /* the dead would keep old pages */
  if (rc == 0) rc = OrNoMemory(LoadOnce);
  if (rc == 0) return 0;
  LmdbClose(&work_copy);
  return Failed("opening", kWorkPlace.folder, rc);
}

/* With the lock nobody else is about to open the working copy, or uses flash, when it is loaded.
   Without a folder for flash there is nothing to lock: then it starts without settings. */
int Attach() {
  std::lock_guard<std::mutex> guard(opening);
  if (work_copy.env != nullptr) return 0;
  int lock = FlashLock(), result = OpenWork();
  if (lock >= 0) FlashUnlock(lock);
  return result;
}

int CheckArea(int type) {
  if (type == NVTYPE_STAGING || type == NVTYPE_BASIC) return Attach();
  AMS_PRINT(4, "nvram: area %d is neither 1 nor 2\n", type);
  return -1;
}

/* A text of the caller's; one byte more than may be when it is too long. A NUL byte stands for
   NULL: it is refused. */
std::string Bounded(const char *text, size_t most) {
  return text == nullptr ? std::string(1, '\0') : std::string(text, strnlen(text, most + 1));
}

int CheckKey(const std::string &key) {
  if (!key.empty() && key.size() <= kNvramKeyMax && key.find('\0') == key.npos) return 0;
  AMS_PRINT(4, "nvram: a key has 1 to %zu bytes: \"%.64s\"\n", kNvramKeyMax, key.c_str());
  return -1;
}

int CheckChange(const NvramChange &change) {
  if (CheckKey(change.key) != 0) return -1;
  if (!change.value) return 0;
  if (change.value->size() <= kNvramValueMax && change.value->find('\0') == std::string::npos)
    return 0;
  AMS_PRINT(4, "nvram: the value of \"%s\" is missing or longer than %zu bytes\n",
            change.key.c_str(), kNvramValueMax);
  return -1;
}

int Change(MDB_txn *txn, int type, const NvramChange &change) {
  std::string row = RowKey(type, change.key);
  return change.value ? Put(txn, row, *change.value) : Delete(txn, row);
}

/* Runs `attempt`; when there is no room for it, once more without the readers that keep old pages:
   they stand still, or are dead. */
template <class Attempt>
int WithRoom(Attempt attempt) {
  int rc = attempt();
  if (!IsFull(rc)) return rc;
  for (pid_t ended; (ended = LmdbEndStopped(work_copy)) != 0;)
    AMS_PRINT(4, "nvram: process %d stood still inside a read and kept all old pages: ended\n",
              ended);
  return attempt();
}

/* Runs `work(txn)` in one write transaction of the working copy; commits when it returns 0. */
template <class Work>
int Write(const char *what, Work work) {
  int rc = WithRoom([&work] {
    return OrNoMemory([&work] {
      Transaction write;
      int failed = write.Begin(0);
      if (failed == 0) failed = work(write.txn);
      return failed == 0 ? write.Commit() : failed;
    });
  });
  return rc == 0 ? 0 : Failed(what, kWorkPlace.folder, rc);
}

int ChangeOne(int type, const NvramChange &change) {
  if (CheckChange(change) != 0 || CheckArea(type) != 0) return -1;
  return Write("writing", [&](MDB_txn *txn) { return Change(txn, type, change); });
}

}  // namespace

int nvram_init_semaphore(void) { return Attach(); }

int nvram_desk_read(int type, const std::string &key, std::optional<std::string> *value) {
  value->reset();
  if (CheckKey(key) != 0 || CheckArea(type) != 0) return -1;
  int rc = OrNoMemory([&] {
    Transaction read;
    MDB_val found, data;
    const std::string row = RowKey(type, key);
    int failed = read.Begin(MDB_RDONLY);
    found = LmdbVal(row.data(), row.size());
    if (failed == 0) failed = mdb_get(read.txn, work_copy.dbi, &found, &data);
    if (failed == 0) *value = Text(data);
    return failed;
  });
  return rc == 0 || rc == MDB_NOTFOUND ? 0 : Failed("reading", key.c_str(), rc);
}

char *nvram_get(const char *key, int type) {
  std::optional<std::string> value;
  int rc = OrNoMemory([&] { return nvram_desk_read(type, Bounded(key, kNvramKeyMax), &value); });
  char *copy = rc == 0 && value ? strndup(value->data(), value->size()) : nullptr;
  if (rc == ENOMEM || (rc == 0 && value && copy == nullptr))
    Failed("reading", kWorkPlace.folder, ENOMEM);
  return copy;
}

namespace {

/* `make` makes the change: it needs memory. */
template <class Make>
int ChangeMade(int type, Make make) {
  int rc = OrNoMemory([&] { return ChangeOne(type, make()); });
  return rc == ENOMEM ? Failed("writing", kWorkPlace.folder, rc) : rc;
}

}  // namespace

int nvram_set(const char *key, const char *value, int type) {
  return ChangeMade(type, [=] {
    return NvramChange{Bounded(key, kNvramKeyMax), Bounded(value, kNvramValueMax)};
  });
}

int nvram_unset(const char *key, int type) {
  return ChangeMade(type, [=] { return NvramChange{Bounded(key, kNvramKeyMax), std::nullopt}; });
}

int nvram_commit(int type) { return nvram_desk_apply(type, {}); }

int nvram_clean(int type) {
  if (CheckArea(type) != 0) return -1;
  return Write("cleaning", [=](MDB_txn *txn) {
    return ForSettings(txn, type, "", [](MDB_cursor *cursor, std::string_view, std::string_view) {
      return mdb_cursor_del(cursor, 0);
    });
  });
}

/* What is visited is a copy: a visitor may wait for long, and old pages would be kept for it. */
int nvram_walk(int type, const char *prefix,
               int (*visit)(const char *key, const char *value, void *context), void *context) {
  std::string records;
  int result = 0;
  if (CheckArea(type) != 0) return -1;
  int rc = OrNoMemory([&] {
    Transaction read;
    int failed = read.Begin(MDB_RDONLY);
    return failed == 0 ? ReadRecords(read.txn, type, prefix == nullptr ? "" : prefix, &records)
                       : failed;
  });
  if (rc != 0) return Failed("reading", kWorkPlace.folder, rc);
  std::string_view rest = records, key, value; /* each ends with a NUL */
  while (result == 0 && FlashNext(&rest, &key, &value))
    result = visit(key.data(), value.data(), context);
  return result;
}

namespace {

constexpr int kLogged = -1; /* an error of neither the system nor the library */

/* Flash first: what it cannot take is changed nowhere. */
int ApplyLocked(int type, const std::vector<NvramChange> &changes) {
  Transaction write;
  std::string records;
  int stored = 0, rc = write.Begin(0);
  for (size_t at = 0; rc == 0 && at < changes.size(); ++at)
    rc = Change(write.txn, type, changes[at]);
  if (rc == 0) rc = ReadRecords(write.txn, type, "", &records);
  if (rc == 0 && (stored = FlashStore(type, records)) < 0) rc = kLogged;
  if (rc == 0) rc = write.Commit();
  if (rc != 0 && stored == 1) FlashUndo(type);
  return rc;
}

}  // namespace

int nvram_desk_apply(int type, const std::vector<NvramChange> &changes) {
  for (const NvramChange &change : changes)
    if (CheckChange(change) != 0) return -1;
  if (CheckArea(type) != 0) return -1;
  int lock = FlashLock();
  if (lock < 0) return Failed("locking", "flash", errno);
  int rc = WithRoom([type, &changes] {
    return OrNoMemory([type, &changes] { return ApplyLocked(type, changes); });
  });
  FlashUnlock(lock);
  return rc == 0 || rc == kLogged ? rc : Failed("writing", kWorkPlace.folder, rc);
}
