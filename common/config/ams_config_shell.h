// Command lines of the op functions: the only way by which the daemon runs a shell. Calls may come
// from any thread.
#pragma once

#include <cstddef>

/* Formats a command line, logs it, runs it through the shell and waits for the shell: a line that
   ends in "&" leaves its command in the background. Returns 0 whatever the command does; -1 (logged
   at level 4) when it was not run: the line is longer than 511 bytes, or there was no process or no
   memory for it. An op function need not look at the result: the framework refuses the request of
   one whose command was not run, whatever it returns (see appt_Do_OpFunc). */
int cfgSystemCmd(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* The same for a line of any length, without the record that it is run. */
int cfgShell(const char *line);

/* Runs a line of any length without a record and copies what it prints into `text`: the first
   `size` - 1 bytes, terminated. How many they are; -1 (logged at level 4), `text` empty, when it
   was not run. */
int cfgShellRead(const char *line, char *text, size_t size);
template <size_t N>
int cfgShellRead(const char *line, char (&text)[N]) {
  return cfgShellRead(line, text, N);
}

/* Whether a command of the calling thread was not run since this was last asked: the framework asks
   around each op function. */
bool cfgCommandFailed();
