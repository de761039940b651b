// The page's server: it listens on a socket file, lets in whoever has the token, and runs calls by
// name. All that it answers is JSON, but the page's own files and the stream of events.
#pragma once

#include <string>

#include "control.h"

/* One call, POST /api/NAME: takes the body's object and gives one as a simulator's reply is
   (control.h), with what was asked for beside "status" and "text". Runs on any thread of the
   server; what the library of JSON throws becomes a refusal. */
struct PanelCall {
  const char *name;
  Json (*run)(const Json &asked);
};

/* The rows of the files; one without a name ends them. */
extern const PanelCall kModelCalls[], kDeskCalls[], kAccessCalls[], kHealthCalls[];

struct PanelDoor {
  std::string token; /* who does not know it sees nothing of the gateway */
  std::string port;  /* of 127.0.0.1, where browsers find the page */
  std::string web;   /* folder of the page's files */
};

/* Makes the socket file, for this user alone. The descriptor, or -1 with errno. */
int PanelListen(const char *path);

/* Serves for ever; -1 when the socket fails. */
int PanelServe(int socket, const PanelDoor &door);
