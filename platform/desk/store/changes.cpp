// The change list and who looks at it; see changes.h and store_desk.h.
#include "changes.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "instances.h"
#include "keep.h"
#include "nvram.h"
#include "put.h"
#include "store_desk.h"
#include "tds.h"
#include "tree.h"

namespace {

constexpr size_t kBeforeMax = 255;

/* A row is "MILLISECONDS WHO" of the change, a tab, and the value before it. */
struct Change {
  int64_t time;
  std::string_view who, before;
};

/* -1: it is none. */
int Parse(std::string_view row, Change *change) {
  const size_t blank = row.find(' '), line = row.find('\t');
  if (blank == row.npos || line == row.npos || blank > line) return -1;
  change->time = strtoll(std::string(row.substr(0, blank)).c_str(), nullptr, 10);
  change->who = row.substr(blank + 1, line - blank - 1);
  change->before = row.substr(line + 1);
  return 0;
}

std::string_view Text(const MDB_val &data) {
  return {static_cast<char *>(data.mv_data), data.mv_size};
}

int Put(MDB_txn *txn, const Key &leaf, const std::string &row) {
  KeepBeside(kKeptChanges, leaf, row);
  return TreePut(txn, KeyMarked(KEY_CHANGED, leaf), row.data(), row.size());
}

int64_t NowMs() {
  int32_t seconds, milliseconds;
  tds_gettime(&seconds, &milliseconds);
  return int64_t{seconds} * 1000 + milliseconds;
}

struct Kept {
  std::string path, value;
};

int Collect(const char *key, const char *value, void *context) {
  const std::string name(key);
  static_cast<std::vector<Kept> *>(context)->push_back({name.substr(name.find(':') + 1), value});
  return 0;
}

/* Calls `lay(key, record, value)` for what is kept of nodes that there are. */
template <class Lay>
int LayEach(MDB_txn *txn, const char *prefix, Lay lay) {
  std::vector<Kept> kept;
  if (nvram_walk(NVTYPE_STAGING, prefix, Collect, &kept) != 0) return -1;
  for (const Kept &entry : kept) {
    Key key;
    Record record;
    if (TreeFindPath(txn, entry.path.c_str(), false, &key, &record) == 0 &&
        lay(key, record, entry.value) != 0)
      return -1;
  }
  return 0;
}

}  // namespace

int ChangeNote(MDB_txn *txn, const Key &leaf, std::string_view before) {
  char who[TDS_NAME_SIZE];
  MDB_val data;
  if (TreeGet(txn, KeyMarked(KEY_CHANGED, leaf), &data) == 0) return 0;
  Self(who);
  std::string row = std::to_string(NowMs()) + " " + who + "\t";
  return Put(txn, leaf, row.append(before.substr(0, kBeforeMax)));
}

int ChangeForget(MDB_txn *txn, const Key &leaf) {
  KeepBeside(kKeptChanges, leaf, std::nullopt);
  return TreeDelete(txn, KeyMarked(KEY_CHANGED, leaf));
}

/* "0" is what a node without the attribute has, so it is not stored. */
int NotifyPut(MDB_txn *txn, const Key &key, const Record &record, std::string_view value) {
  Key notify = KeyMarked(KEY_NOTIFY, key);
  const unsigned others = record.head.flags & ~unsigned{RECORD_NOTIFY};
  const unsigned flags = value != "0" ? others | RECORD_NOTIFY : others;
  if (TreePutFlags(txn, key, static_cast<uint8_t>(flags)) != 0) return -1;
  if (value != "0") return TreePut(txn, notify, value.data(), value.size());
  if (TreeDelete(txn, notify) != 0) return -1;
  return ChangeForget(txn, key);
}

int ChangesLay(MDB_txn *txn) {
  const uint8_t root = KEY_ROOT;
  const Key list = KeyMarked(KEY_CHANGED, &root, 1); /* laying rows is no change */
  KeepNothing();
  if (TreeDeleteRun(txn, list) != 0 ||
      LayEach(txn, kKeptNotify,
              [=](const Key &key, const Record &record, const std::string &value) {
                return NotifyPut(txn, key, record, value);
              }) != 0)
    return -1;
  return LayEach(txn, kKeptChanges,
                 [=](const Key &key, const Record &record, const std::string &row) {
                   Change change;
                   if (!RecordIsLeaf(record) || (record.head.flags & RECORD_NOTIFY) == 0 ||
                       Parse(row, &change) != 0)
                     return 0;
                   return TreePut(txn, KeyMarked(KEY_CHANGED, key), row.data(), row.size());
                 });
}

int ams_desk_changes(AmsDeskChangeVisit visit, void *context) {
  return TreeRead([=](MDB_txn *txn) {
    TreeCursor cursor;
    const uint8_t mark = KEY_CHANGED;
    MDB_val key = LmdbVal(&mark, 1), data;
    if (TreeOpenCursor(txn, &cursor) != 0) return -1;
    int rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_SET_RANGE);
    for (; rc == 0 && *static_cast<uint8_t *>(key.mv_data) == mark;
         rc = mdb_cursor_get(cursor.get(), &key, &data, MDB_NEXT)) {
      char path[kKeyMax + 1];
      Change change;
      Key leaf;
      Record record;
      const uint8_t *bytes = static_cast<uint8_t *>(key.mv_data) + 1;
      if (Parse(Text(data), &change) != 0 || KeyOfBytes(bytes, key.mv_size - 1, &leaf) != 0 ||
          TreeFind(txn, leaf, &record) != 0)
        continue;
      KeyToPath(bytes, key.mv_size - 1, path);
      visit({path, change.before, {record.value, record.length}, change.who, change.time}, context);
    }
    return rc == 0 || rc == MDB_NOTFOUND ? 0 : TreeFailed("reading", rc);
  });
}

int ams_desk_changed_by(const char *path, const char *who, int64_t since) {
  Key key;
  Record record;
  const bool noted = TreeRead([&](MDB_txn *txn) {
                       MDB_val data;
                       Change change;
                       if (TreeFindPath(txn, path, false, &key, &record) != 0) return -1;
                       if (TreeGet(txn, KeyMarked(KEY_CHANGED, key), &data) != 0) return -1;
                       return Parse(Text(data), &change) == 0 && change.time >= since ? 0 : -1;
                     }) == 0;
  if (!noted) return 0;
  return TreeWrite([&](MDB_txn *txn) {
    MDB_val data;
    Change change;
    if (TreeGet(txn, KeyMarked(KEY_CHANGED, key), &data) != 0 || Parse(Text(data), &change) != 0)
      return 0; /* it was read just now */
    std::string row = std::to_string(change.time) + " " + who + "\t";
    return Put(txn, key, row.append(change.before));
  });
}
