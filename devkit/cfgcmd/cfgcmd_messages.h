// Messages to any endpoint, as the words of the client's verbs tell them.
#pragma once

#include "cfgcmd.h"

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
