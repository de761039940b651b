// The settings store on a desk: a working copy in shared memory, which every process reads and
// writes; a commit adds what has changed in an area of it to flash (flash.cpp). What the keys mean
// is its users' affair.
#include "nvram_desk.h"

#include <lmdb.h>

#include <algorithm>
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

/* Keys of the working copy: the area's digit, then the setting's key; the area's letter below, then
   the key of one that is not committed yet, with what the last commit has: "=VALUE", or "" for
   none; how an area's file on flash ends; and kLoaded. */
namespace {

constexpr char kLoaded[] = "loaded", kLoadedValue[] = "1";
constexpr char kCommitted = 'a' - 1, kEnd = 'x' - 1; /* + area */

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

/* What `work` returns; ENOMEM where it lacks memory of its own. */
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
  void GiveUp() { mdb_txn_abort(std::exchange(txn, nullptr)); }
  ~Transaction() {
    if (txn != nullptr) GiveUp();
  }
};

std::string RowKey(int type, std::string_view key, char first = '0') {
  return std::string(1, static_cast<char>(first + type)).append(key);
}

std::string_view Text(const MDB_val &val) {
  return {static_cast<char *>(val.mv_data), val.mv_size};
}

int Get(MDB_txn *txn, std::string_view row, std::optional<std::string_view> *value) {
  MDB_val key = LmdbVal(row.data(), row.size()), data;
  int rc = mdb_get(txn, work_copy.dbi, &key, &data);
  value->reset();
  if (rc == 0) *value = Text(data);
  return rc == MDB_NOTFOUND ? 0 : rc;
}

int Put(MDB_txn *txn, std::string_view row, std::string_view value) {
  MDB_val key = LmdbVal(row.data(), row.size()), data = LmdbVal(value.data(), value.size());
  return mdb_put(txn, work_copy.dbi, &key, &data, 0);
}

int Delete(MDB_txn *txn, std::string_view row) {
  MDB_val key = LmdbVal(row.data(), row.size());
  int rc = mdb_del(txn, work_copy.dbi, &key, nullptr);
  return rc == MDB_NOTFOUND ? 0 : rc;
}

int PutOrDelete(MDB_txn *txn, std::string_view row, std::optional<std::string_view> value) {
  return value ? Put(txn, row, *value) : Delete(txn, row);
}

/* Calls `each(key, value)` for the rows whose keys start with `rows`; the key without the first
   byte. Stops at non-zero. */
template <class Each>
int ForRows(MDB_txn *txn, const std::string &rows, Each each) {
  MDB_cursor *cursor = nullptr;
  int rc = mdb_cursor_open(txn, work_copy.dbi, &cursor);
  if (rc != 0) return rc;
  const std::unique_ptr<MDB_cursor, decltype(&mdb_cursor_close)> owned(cursor, mdb_cursor_close);
  MDB_val row = LmdbVal(rows.data(), rows.size()), value;
  MDB_cursor_op op = MDB_SET_RANGE;
  while ((rc = mdb_cursor_get(cursor, &row, &value, op)) == 0 &&
         Text(row).substr(0, rows.size()) == rows) {
    if ((rc = each(Text(row).substr(1), Text(value))) != 0) break;
    op = MDB_NEXT;
  }
  return rc == MDB_NOTFOUND ? 0 : rc;
}

/* The settings as flash keeps them. */
int ReadSettings(MDB_txn *txn, int type, std::string_view prefix, std::string *settings) {
  return ForRows(txn, RowKey(type, prefix), [=](std::string_view key, std::string_view value) {
    settings->append(key).append(1, '\0').append(value).append(1, '\0');
    return 0;
  });
}

int PutEnd(MDB_txn *txn, int type, const FlashEnd &end) {
  return Put(txn, RowKey(type, "", kEnd), {reinterpret_cast<const char *>(&end), sizeof end});
}

int GetEnd(MDB_txn *txn, int type, FlashEnd *end) {
  std::optional<std::string_view> bytes;
  int rc = Get(txn, RowKey(type, "", kEnd), &bytes);
  *end = {};
  if (bytes && bytes->size() == sizeof *end) memcpy(end, bytes->data(), sizeof *end);
  return rc;
}

int LoadArea(MDB_txn *txn, int type) {
  std::string settings;
  FlashEnd end;
  int rc = FlashLoad(type, &settings, &end);
  std::string_view rest = settings, key, value;
  while (rc == 0 && FlashNext(&rest, &key, &value)) rc = Put(txn, RowKey(type, key), value);
  return rc == 0 ? PutEnd(txn, type, end) : rc;
}

/* The first process loads from flash; the write transaction makes the others wait for it. */
int LoadOnce() {
  Transaction write;
  std::optional<std::string_view> loaded;
  int rc = write.Begin(0);
  if (rc == 0) rc = Get(write.txn, kLoaded, &loaded);
  if (rc != 0 || loaded) return rc;
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
  int lock = FlashLock(), result = OrNoMemory(OpenWork);
  if (lock >= 0) FlashUnlock(lock);
  if (result != ENOMEM) return result;
  LmdbClose(&work_copy);
  return Failed("opening", kWorkPlace.folder, result);
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
  if (!key.empty() && key.size() <= NVRAM_KEY_MAX && key.find('\0') == key.npos) return 0;
  AMS_PRINT(4, "nvram: a key has 1 to %d bytes: \"%.64s\"\n", NVRAM_KEY_MAX, key.c_str());
  return -1;
}

int CheckChange(const NvramChange &change) {
  if (CheckKey(change.key) != 0) return -1;
  if (!change.value) return 0;
  if (change.value->size() <= NVRAM_VALUE_MAX && change.value->find('\0') == std::string::npos)
    return 0;
  AMS_PRINT(4, "nvram: the value of \"%s\" is missing or longer than %d bytes\n",
            change.key.c_str(), NVRAM_VALUE_MAX);
  return -1;
}

/* Changes a setting, and notes what the last commit has of it. */
int Change(MDB_txn *txn, int type, const NvramChange &change) {
  const std::string row = RowKey(type, change.key),
                    noted_row = RowKey(type, change.key, kCommitted);
  std::optional<std::string_view> value, noted;
  int rc = Get(txn, row, &value);
  if (rc != 0 || value == change.value) return rc;
  rc = Get(txn, noted_row, &noted);
  if (rc == 0 && !noted)
    rc = Put(txn, noted_row, value ? "=" + std::string(*value) : std::string());
  return rc == 0 ? PutOrDelete(txn, row, change.value) : rc;
}

/* What the settings that are not committed yet were at the last commit. */
int ReadNoted(MDB_txn *txn, int type, std::vector<NvramChange> *noted) {
  const std::string rows = RowKey(type, "", kCommitted);
  return ForRows(txn, rows, [=](std::string_view key, std::string_view value) {
    noted->push_back({std::string(key), std::nullopt});
    if (!value.empty()) noted->back().value = value.substr(1);
    return 0;
  });
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
    std::optional<std::string_view> found;
    int failed = read.Begin(MDB_RDONLY);
    if (failed == 0) failed = Get(read.txn, RowKey(type, key), &found);
    if (found) *value = *found;
    return failed;
  });
  return rc == 0 ? 0 : Failed("reading", key.c_str(), rc);
}

int nvram_desk_copy(const char *folder) {
  return Attach() != 0 ? ENOENT : LmdbCopy(work_copy, folder);
}

char *nvram_get(const char *key, int type) {
  std::optional<std::string> value;
  int rc = OrNoMemory([&] { return nvram_desk_read(type, Bounded(key, NVRAM_KEY_MAX), &value); });
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
    return NvramChange{Bounded(key, NVRAM_KEY_MAX), Bounded(value, NVRAM_VALUE_MAX)};
  });
}

int nvram_unset(const char *key, int type) {
  return ChangeMade(type, [=] { return NvramChange{Bounded(key, NVRAM_KEY_MAX), std::nullopt}; });
}

int nvram_commit(int type) { return nvram_desk_apply(type, {}, nullptr); }

int nvram_clean(int type) {
  if (CheckArea(type) != 0) return -1;
  return Write("cleaning", [=](MDB_txn *txn) {
    std::string settings;
    int rc = ReadSettings(txn, type, "", &settings);
    std::string_view rest = settings, key, value;
    while (rc == 0 && FlashNext(&rest, &key, &value))
      rc = Change(txn, type, {std::string(key), std::nullopt});
    return rc;
  });
}

/* What is visited is a copy: a visitor may wait for long, and old pages would be kept for it. */
int nvram_walk(int type, const char *prefix,
               int (*visit)(const char *key, const char *value, void *context), void *context) {
  std::string settings;
  int result = 0;
  if (CheckArea(type) != 0) return -1;
  int rc = OrNoMemory([&] {
    Transaction read;
    int failed = read.Begin(MDB_RDONLY);
    return failed == 0 ? ReadSettings(read.txn, type, prefix == nullptr ? "" : prefix, &settings)
                       : failed;
  });
  if (rc != 0) return Failed("reading", kWorkPlace.folder, rc);
  std::string_view rest = settings, key, value; /* each ends with a NUL */
  while (result == 0 && FlashNext(&rest, &key, &value))
    result = visit(key.data(), value.data(), context);
  return result;
}

namespace {

/* Errors of neither the system nor the library. */
constexpr int kLogged = -1, kAnew = -2;

/* The changes of a commit as flash keeps them, and what all settings take with them. */
struct Commit {
  std::string changes;
  size_t settings;
};

void Note(std::string_view key, std::optional<std::string_view> before,
          std::optional<std::string_view> after, Commit *commit) {
  if (before == after) return;
  commit->changes.append(key).append(1, '\0');
  if (after) commit->changes.append(1, '=').append(*after);
  commit->changes.append(1, '\0');
  if (after) commit->settings += key.size() + after->size() + 2;
  if (before) commit->settings -= key.size() + before->size() + 2;
}

/* What was changed before and is not committed yet. */
int NoteEarlier(MDB_txn *txn, int type, Commit *commit) {
  std::vector<NvramChange> noted;
  int rc = ReadNoted(txn, type, &noted);
  for (size_t at = 0; rc == 0 && at < noted.size(); ++at) {
    std::optional<std::string_view> value;
    rc = Get(txn, RowKey(type, noted[at].key), &value);
    if (rc != 0) break;
    Note(noted[at].key, noted[at].value, value, commit);
    rc = Delete(txn, RowKey(type, noted[at].key, kCommitted));
  }
  return rc;
}

/* `before`: what the changes so far replace, the last one first once all are made. */
int ChangeNoted(MDB_txn *txn, int type, const NvramChange &change, Commit *commit,
                std::vector<NvramChange> *before) {
  std::optional<std::string_view> value;
  const std::string row = RowKey(type, change.key);
  int rc = Get(txn, row, &value);
  if (rc != 0 || value == change.value) return rc;
  if (before != nullptr) before->push_back({change.key, {}});
  if (before != nullptr && value) before->back().value = *value;
  Note(change.key, value, change.value, commit);
  return PutOrDelete(txn, row, change.value);
}

/* Writes the area's file anew, as it was at the last commit. `end` is how it ends now. */
int StoreAnew(MDB_txn *txn, int type, FlashEnd *end) {
  std::vector<NvramChange> noted;
  std::string settings;
  int rc = ReadNoted(txn, type, &noted);
  auto put = [&](std::string_view key, std::string_view value) {
    settings.append(key).append(1, '\0').append(value).append(1, '\0');
  };
  auto next = noted.begin(); /* both are in the order of their keys */
  if (rc == 0)
    rc = ForRows(txn, RowKey(type, ""), [&](std::string_view key, std::string_view value) {
      for (; next != noted.end() && next->key < key; ++next)
        if (next->value) put(next->key, *next->value);
      if (next == noted.end() || next->key != key) put(key, value);
      return 0;
    });
  for (; next != noted.end(); ++next)
    if (next->value) put(next->key, *next->value);
  return rc != 0 ? rc : FlashStore(type, settings, end) != 0 ? kLogged : 0;
}

/* For a commit that failed when flash had it. A file that another one has written anew since does
   not have it. */
void TakeBack(int type, const FlashEnd &kept, const FlashEnd &before) {
  Transaction write;
  FlashEnd end;
  int rc = write.Begin(0);
  if (rc == 0) rc = GetEnd(write.txn, type, &end);
  if (rc != 0)
    Failed("taking back a change of", "flash", rc);
  else if (end.size == kept.size && end.sum == kept.sum)
    FlashUndo(type, before);
}

/* Flash first: what it cannot take is changed nowhere. The write transaction keeps all others from
   flash, too. */
int ApplyOnce(int type, const std::vector<NvramChange> &changes, bool anew,
              std::vector<NvramChange> *before) {
  Transaction write;
  FlashEnd end = {};
  int rc = write.Begin(0);
  if (rc == 0) rc = GetEnd(write.txn, type, &end);
  const FlashEnd kept = end;
  if (rc == 0 && anew) rc = StoreAnew(write.txn, type, &end);
  const FlashEnd stored = end;
  Commit commit = {"", end.settings};
  if (rc == 0) rc = NoteEarlier(write.txn, type, &commit);
  for (size_t at = 0; rc == 0 && at < changes.size(); ++at)
    rc = ChangeNoted(write.txn, type, changes[at], &commit, before);
  const int added = rc == 0 ? FlashAdd(type, commit.changes, commit.settings, &end) : 0;
  if (added != 0) rc = added == FLASH_ANEW ? kAnew : kLogged;
  if (rc == 0 && (anew || end.size != kept.size)) rc = PutEnd(write.txn, type, end);
  if (rc == 0) rc = write.Commit();
  if (rc != 0 && write.txn != nullptr) write.GiveUp();
  if (rc != 0 && end.size != stored.size) TakeBack(type, kept, stored);
  return rc;
}

int Apply(int type, const std::vector<NvramChange> &changes, std::vector<NvramChange> *before) {
  int rc = kAnew;
  for (bool anew : {false, true}) {
    if (rc != kAnew) break;
    if (before != nullptr) before->clear();
    rc = ApplyOnce(type, changes, anew, before);
  }
  if (before != nullptr) std::reverse(before->begin(), before->end());
  return rc == kAnew ? EBUSY : rc; /* somebody else writes there */
}

}  // namespace

int nvram_desk_apply(int type, const std::vector<NvramChange> &changes,
                     std::vector<NvramChange> *before) {
  for (const NvramChange &change : changes)
    if (CheckChange(change) != 0) return -1;
  if (CheckArea(type) != 0) return -1;
  int rc = WithRoom([&] { return OrNoMemory([&] { return Apply(type, changes, before); }); });
  return rc == 0 || rc == kLogged ? rc : Failed("writing", kWorkPlace.folder, rc);
}
