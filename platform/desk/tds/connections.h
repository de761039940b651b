// The connections that others opened to a module.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "watch.h"
#include "wire.h"

struct Module;

struct Connection {
  WatchKey key;
  pid_t pid;          /* of the process that made it */
  std::string sender; /* empty until its hello came */
  uint32_t noted;     /* sequence number of the message that the note is of */
  std::string note;
  WireHead announced; /* of what is being received */
  uint8_t patience;   /* looks in vain before its burst is over; 0: it is no burst */
  uint8_t turns;      /* counts those without a look */
};

struct Newcomer {
  WatchKey key;
  uint64_t since; /* ms of the monotonic clock */
};

/* Takes the next connection of a listening socket. 0, or -1: there was none to take. */
int ConnectionAccept(Module *module, int listener);

/* The connection, or NULL when it is closed. */
Connection *ConnectionOf(const Module *module, WatchKey key);
void ConnectionClose(Module *module, WatchKey key);

/* When there is nothing left to tidy, the thread does not wake for it. */
void TidyNoLonger(Module *module);

/* Counts a turn of the connection. Whether frames behind its next one are worth a look, which costs
   a system call: of one that had some each time until it was in vain often enough, of another one
   now and then, as who waits for its answer has no more. */
bool ConnectionBeginTurn(Connection *connection);

/* What a look has found. */
void ConnectionLooked(Connection *connection, bool had);

/* Tells a caller that its call gets no answer, and why (an errno). */
void ConnectionRefuse(const Connection *connection, uint32_t sequence, int reason);

/* At the latest then, ms of the monotonic clock, ConnectionsTidy is due. */
void TidyBy(Module *module, uint64_t time);

/* What is due at the module's `tidy_at`. */
void ConnectionsTidy(Module *module);
