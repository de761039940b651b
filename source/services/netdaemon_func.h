// The gateway's own network daemons, started and stopped from their parameters.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "op_rows.h"

/* "23,2323" -> {23, 2323}. Pieces go through atoi, so junk and an empty piece read as 0; order is
   kept. An empty text has no piece. */
std::vector<int> PortList(std::string_view text);

/* A daemon with a list of ports. */
struct PortDaemon {
  const char *enable, *ports; /* its parameters */
  bool node_check;            /* a model without the Enable parameter has no such service */
  const char *kill;
  void (*prepare)(); /* at the start of the module; may be NULL */
  /* The lines that start it on these ports; -1 (logged) when they cannot be had: they are made
     before a daemon that runs is killed. */
  int (*lines)(const std::vector<int> &ports, std::vector<std::string> *lines);
  int type;       /* of its sockets: SOCK_... */
  int usual_port; /* in place of a number below 1, and without any; 0: the daemon has none */
};
extern const PortDaemon kTelnet, kTftp, kSsh;

/* Brings the daemon to what its parameters say. 0 or -1 (logged). */
int ApplyPortDaemon(const PortDaemon &daemon, int op);

template <const PortDaemon &Daemon>
int FuncPortDaemon(OpFuncArg *arg) {
  return IsInitOrSet(arg->op) ? ApplyPortDaemon(Daemon, arg->op) : 0;
}

int FuncServPrinter(OpFuncArg *arg);
