// The command lines that the daemon starts, with the times at which it did, as the desk's shell
// notes them. On the thread "dbmgr:dbmgt".
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct CommandRun {
  uint64_t at; /* ns of the monotonic clock */
  std::string line;
};

/* From now on, to the end. */
void CommandsBegin();
void CommandsEnd();

/* Reads what was noted meanwhile. The last 2,000 are kept. */
void CommandsRead();

/* Those that were started between two times. */
std::vector<CommandRun> CommandsBetween(uint64_t begin, uint64_t end);
