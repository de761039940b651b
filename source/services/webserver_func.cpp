// The web server's restart, by a script that outlives the request: the pause in it lets the answer
// reach the browser before the server is killed. On which ports is the caller's business.
#include "webserver_func.h"

#include <cstdio>
#include <string>

#include "ams_common_api.h"
#include "ams_config_shell.h"
#include "op_values.h"

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

/* A mark that cannot be written was logged by the store; the restart matters more. */
void SetMark(int value) { (void)ams_mxml_sset_leaf_int(RESTART_MARK, value); }

}  // namespace

void WebServerRestart(const WebPorts &web) {
  if (WriteOwnFile(kScript, RestartScript(web)) != 0) {
    AMS_PRINT(4,
              "web server not restarted, cannot write %s: %m; remove what is there or make room in "
              "/tmp\n",
              kScript);
  } else {
    SetMark(1); /* the script takes it back */
    if (cfgSystemCmd("sh %s &", kScript) != 0) SetMark(0);
  }
  fputs("restart uhttpd \n", stderr);
}
