// Messages to any endpoint, as the client's verbs send them.
#pragma once

#include "cfgcmd.h"

/* tds_call with a failure as an outcome: `*reply` is the answer's bytes. */
Outcome Call(const char *dest, uint32_t id, const std::string &payload, const Options &options,
             std::string *reply);

/* "NAME ID [--wait] [--text T | --hex H]". */
struct Message {
  int64_t id = 0;
  bool wait = false;
  std::string payload;
};
bool ParseMessage(const Words &words, Message *message);

/* The daemon's modules. */
const Words &Modules();

/* The verb "wait" asks with an id that no message table has. */
constexpr uint32_t kProbe = 0x1ffffe;
