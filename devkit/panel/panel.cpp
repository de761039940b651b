// panel: the page that shows the gateway of the desk and lets one play with it. Its server listens
// on a socket file, which the sandbox's caller forwards to a port of 127.0.0.1.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <thread>

#include "command_line.h"
#include "panel_follow.h"
#include "panel_http.h"
#include "panel_watch.h"
#include "service.h"

namespace {

constexpr size_t kTokenLeast = 32; /* hexadecimal digits: 128 bits */

const MsgEntry kMessages[] = {{0, nullptr}};
const ModuleEntry kModules[] = {
    {"panel:watch", {0, 0}, kMessages},
    {nullptr, {0, 0}, nullptr},
};

int Fail(const std::string &what) {
  fprintf(stderr, "panel: %s\n", what.c_str());
  return EXIT_REFUSED;
}

}  // namespace

int main(int argc, char **argv) {
  PanelDoor door;
  std::string socket_file, token_file;
  CLI::App app("The server of the page that shows the gateway of the desk.", "panel");
  app.add_option("--socket", socket_file, "The socket file to listen on")->required();
  app.add_option("--token-file", token_file, "A file with the token that pages have to know")
      ->required();
  app.add_option("--port", door.port, "The port of 127.0.0.1 that leads here")->required();
  app.add_option("--web", door.web, "The folder of the page's files")->required();
  if (auto end = ParseCommandLine(&app, argc, argv)) return *end;
  ServiceBegin();

  std::ifstream(token_file) >> door.token;
  if (door.token.size() < kTokenLeast) return Fail("no token in " + token_file);
  const int socket = PanelListen(socket_file.c_str());
  if (socket < 0) return Fail("cannot listen on " + socket_file + ": " + strerror(errno));
  std::thread([socket, &door] {
    (void)PanelServe(socket, door);
    _exit(Fail("cannot serve " + door.web)); /* it comes back only when it fails */
  }).detach();
  std::thread(WatchForEver).detach();
  std::thread(FollowForEver).detach();
  return ServiceRun("panel", kModules);
}
