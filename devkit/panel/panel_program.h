// Programs of the desk that the panel runs, without a shell in between. Any thread.
#pragma once

#include <string>
#include <vector>

/* Runs it to its end; what it prints, 1 MiB of it, goes into `output` unless that is null. Its exit
   status, or -1: it was not to be started, or a signal ended it. */
int RunProgram(const std::vector<std::string> &words, std::string *output);
