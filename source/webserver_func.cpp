// The web server's restart, by a script that outlives the request: the pause in it lets the answer
// reach the browser before the server is killed. On which ports is the caller's business.
#include "webserver_func.h"

#include <cstdio>
#include <string>

#include "ams_common_api.h"
#include "ams_config_api.h"

namespace {

#define RESTART_MARK "InternetGatewayDevice.DeviceInfo.X_KVO-RestartWeb"

constexpr char kScript[] = "/tmp/.kvo_restart_uhttpd";

std::string ServerCommand(const WebPorts &web) {
  std::string command =
      "uhttpd -n 10 -f -D -h /www -s :443 -K /etc/uhttpd.key.us -C /etc/uhttpd.crt ";
  for (uint32_t i = 0; i < web.count; ++i) command += " -p :" + std::to_string(web.ports[i]) + " ";
  return command + " 2>/dev/null 1>/dev/null &";
}

/* The check watches the first port. Without any port it is given the first slot all the same: 0,
   and the server then listens on its TLS port only. */
std::string RestartScript(const WebPorts &web) {
  return "sleep 4 \n"
         "cfgcmd sset " RESTART_MARK
         " 0 \n"
         "killall -9 uhttpd \n"
         "killall -9 http-check.sh \n" +
         ServerCommand(web) + " \n/usr/syscfg/http-check.sh " + std::to_string(web.ports[0]) +
         " & \n";
}

/* 0, or -1 (logged) when the file does not hold the whole text: half of it would kill the server
   and start none. */
int WriteScript(FILE *file, const std::string &text) {
  int put = fputs(text.c_str(), file);
  if (fclose(file) == 0 && put >= 0) return 0;
  AMS_PRINT(4, "web server not restarted, cannot write %s: %m; make room in /tmp\n", kScript);
  return -1;
}

/* A mark that cannot be written was logged by the store; the restart matters more. */
void SetMark(int value) { (void)ams_mxml_sset_leaf_int(RESTART_MARK, value); }

}  // namespace

void WebServerRestart(const WebPorts &web) {
  FILE *file = fopen(kScript, "we");
  if (file == nullptr) {
    AMS_PRINT(4, "web server not restarted, cannot create %s: %m; remove what is there\n", kScript);
  } else {
    SetMark(1);
    if (WriteScript(file, RestartScript(web)) == 0)
      cfgSystemCmd("sh %s &", kScript);
    else
      SetMark(0); /* the script would have done it */
  }
  fputs("restart uhttpd \n", stderr);
}
