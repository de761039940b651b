// Ending readers that keep old pages for ever; see lmdb_readers.h. Taking the slot of a process
// that may go on would let it read pages that are written meanwhile, so the process is ended first.
#include "lmdb_readers.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "lmdb_env.h"

namespace {

constexpr int kEndMs = 2000;       /* a killed process is gone well within that */
constexpr size_t kWorthwhile = 64; /* this part of the pages; of a whole map, lmdb_room's reserve */
constexpr size_t kFewPages = 16;   /* a place that is small is not short of them */

struct Reader {
  int pid;
  size_t txn;
};

/* A line is "pid thread transaction"; the transaction of a thread that does not read is "-". */
int CollectReader(const char *line, void *context) {
  Reader reader;
  if (sscanf(line, "%d %*x %zu", &reader.pid, &reader.txn) == 2)
    static_cast<std::vector<Reader> *>(context)->push_back(reader);
  return 0;
}

/* By a signal or by a debugger: "pid (name) T". The name may hold anything. */
bool IsStopped(int pid) {
  char text[256] = "";
  std::string name = "/proc/" + std::to_string(pid) + "/stat";
  std::unique_ptr<FILE, int (*)(FILE *)> file(fopen(name.c_str(), "re"), fclose);
  if (file == nullptr || fgets(text, sizeof text, file.get()) == nullptr) return false;
  const char *end = strrchr(text, ')');
  return end != nullptr && (strncmp(end, ") T", 3) == 0 || strncmp(end, ") t", 3) == 0);
}

pid_t End(const LmdbEnv &opened, int pid) {
  if (kill(pid, SIGKILL) != 0) return 0;
  for (int waited = 0, freed = 0; waited < kEndMs && freed == 0; ++waited) {
    if (mdb_reader_check(opened.env, &freed) != 0) break;
    if (freed == 0) usleep(1000);
  }
  return pid;
}

}  // namespace

/* The pages that a commit frees are taken again once no reader is as old as that commit. So ending
   a stopped reader frees what was freed since its snapshot, up to the snapshot of the oldest reader
   that goes on. Where that is little, the place is full of data: ending it would not help. */
pid_t LmdbEndStopped(const LmdbEnv &opened) {
  std::vector<Reader> readers;
  MDB_envinfo info;
  size_t pages = 0;
  (void)mdb_reader_check(opened.env, nullptr); /* those that it leaves are of processes that live */
  if (mdb_env_info(opened.env, &info) != 0) return 0;
  if (mdb_reader_list(opened.env, CollectReader, &readers) < 0) return 0;
  Reader oldest = {0, info.me_last_txnid};
  size_t kept_anyway = info.me_last_txnid;
  for (const Reader &reader : readers) {
    if (!IsStopped(reader.pid))
      kept_anyway = std::min(kept_anyway, reader.txn);
    else if (reader.txn < oldest.txn)
      oldest = reader;
  }
  if (oldest.txn >= kept_anyway) return 0;
  if (LmdbFreePages(opened, oldest.txn, kept_anyway, &pages) != 0) return 0;
  return pages > std::max(info.me_last_pgno / kWorthwhile, kFewPages) ? End(opened, oldest.pid) : 0;
}
