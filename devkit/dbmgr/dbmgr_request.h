// A client's request on its way, and its answer. All of it on the thread "dbmgr:dbmgt".
#pragma once

#include <cstdint>
#include <memory>
#include <new>
#include <string>

#include "dbmgr_plan.h"
#include "dbmgr_proto.h"

/* Where the daemon's log lines are, for answers that need one. */
constexpr char kDaemonLog[] = "/var/log/devkit/sysmgr.log";

/* A client's request that the store serves when several modules are done. */
struct Whole {
  uint64_t client; /* token of the answer that was put off; 0: it was refused */
  Plan plan;
  size_t missing; /* modules that are not done */
};

struct ModuleQueue; /* see dbmgr_queue.cpp */

struct Request {
  uint64_t client = 0; /* token of the answer that was put off */
  Plan plan;
  ModuleQueue *module = nullptr; /* that it is sent to; lives for ever */
  std::shared_ptr<Whole> whole;  /* what it is a part of, instead of a client's own */
  uint64_t sent = 0;             /* its place among all that were sent, once it was */
  std::string who;               /* "set": whose it is, "cfgcmd[123]" */
  int64_t came = 0;              /* ms since 1970 */
};
using RequestPtr = std::unique_ptr<Request>;

/* Whose request it is, or is a part of. */
uint64_t ClientOf(const Request &request);

/* Sends the answer that was put off; a client that has its answer gets no other. std::bad_alloc: it
   has none yet. */
void Answer(uint64_t client, DbmgrAnswer &&answer);
void Refuse(uint64_t client, const std::string &why);

/* The same, where there was no memory for an answer: takes none. */
void RefuseWithoutMemory(uint64_t client);

/* Message handler of GIVE_BACK_TIMER, which each large answer sets anew: what they took goes back
   to the kernel. */
void GiveBack(int32_t id, const void *data, uint32_t length);

/* The answer to a request or to a part of one: the first part that is refused ends the whole, the
   last one that is done lets the store serve it. */
void HandOut(const Request &request, DbmgrAnswer &&answer);
void HandOutWithoutMemory(const Request &request);

/* The same, with the answer that `make` makes. */
template <class Make>
void Finish(const Request &request, Make make) {
  try {
    HandOut(request, make());
  } catch (const std::bad_alloc &) {
    HandOutWithoutMemory(request);
  }
}

/* With the reason that `why` makes. */
template <class Make>
void Refuse(const Request &request, Make why) {
  Finish(request, [=] { return DbmgrAnswer{-1, DbmgrText::TEXT, why()}; });
}
