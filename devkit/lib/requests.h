// Messages to endpoints and requests to the data-base manager, with failures as texts for people.
// Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dbmgr_proto.h"
#include "exit_status.h"

/* `text`: on success what there is to print, with its line feeds; else one line, without. Of wrong
   usage it is what the usage line does not tell. "": everything was said already. */
struct Outcome {
  int status = EXIT_DONE;
  std::string text;
};

/* Of an answer that cannot be read. */
const Outcome kDamagedAnswer = {EXIT_REFUSED,
                                "the answer is damaged: is the gateway of this client?"};

constexpr char kDaemon[] = "sysmgr";
constexpr char kDaemonLog[] = "/var/log/devkit/sysmgr.log";
constexpr uint32_t kUsualLimit = 10000; /* ms */

/* tds_call with a failure as an outcome: `*reply` is the answer's bytes. */
Outcome Call(const char *dest, uint32_t id, const std::string &payload, uint32_t limit_ms,
             std::string *reply);

/* A request to the data-base manager: an outcome that is not done carries the reason. */
Outcome Ask(uint32_t command, const std::string &url, const std::string &value, uint32_t limit_ms,
            DbmgrAnswer *answer);

/* Sets parameters: `words` are paths and values in turn. Those of one object travel in one request.
   All are checked before the first is done; the first that is refused ends it, and the reason says
   what was set before. */
Outcome SetLeaves(const std::vector<std::string> &words, uint32_t limit_ms);

/* The daemon's live memory by tag, a line each. */
Outcome DaemonMemory(uint32_t limit_ms);
