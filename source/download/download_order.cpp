// What is decided about an order without acting on it; see download_order.h.
#include "download_order.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "version_manager.h"

namespace {

constexpr size_t kUrlSize = 1024; /* the URL with its NUL */

int FormatLine(DownloadLine &line, int length) {
  return length < 0 || static_cast<size_t>(length) >= sizeof line ? -1 : 0;
}

}  // namespace

/* What the gateway itself keeps in /tmp, scripts that it runs among it, begins with a dot; a slash
   leads elsewhere. */
bool DownloadIsPlainName(const char *target) {
  return target[0] != '.' && strchr(target, '/') == nullptr;
}

const char *DownloadRefusal(const DownloadOrder &order) {
  DownloadLine line;
  if (!DownloadIsPlainName(order.target))
    return "TargetFileName begins with a dot or holds a slash, order it with a plain name";
  if (strlen(order.target) >= VERSION_NAME_SIZE)
    return "TargetFileName is too long, order it with a shorter one";
  if (strlen(order.url) >= kUrlSize) return "URL is too long, order it with a shorter one";
  if (DownloadStrapCommand(order.command_key, line) != 0 ||
      DownloadInformCommand(order.command_key, line) != 0)
    return "CommandKey is too long, order it with a shorter one";
  if (DownloadFetchCommand(order, line) != 0)
    return "Username or Password is too long, order it with a shorter one";
  return nullptr;
}

/* The texts go to the shell as they were ordered: who may order a download may replace the whole
   firmware. */
int DownloadFetchCommand(const DownloadOrder &order, DownloadLine &line) {
  const char *how = strncmp(order.url, "https", 5) == 0 ? "--digest --insecure" : "--anyauth";
  return FormatLine(
      line, snprintf(line, sizeof line,
                     "curl --globoff %s --connect-timeout 20 -u %s:%s -o '/tmp/%s' '%s'", how,
                     order.username, order.password, order.target, order.url));
}

/* Both spaces and the "manully_inform" below are the management client's. */
int DownloadStrapCommand(const char *command_key, DownloadLine &line) {
  return FormatLine(line, snprintf(line, sizeof line, "nvram set %s=\"BT  TC-%s Dn-%s\"",
                                   "Tr069strap", command_key, command_key));
}

int DownloadInformCommand(const char *command_key, DownloadLine &line) {
  return FormatLine(line, snprintf(line, sizeof line, "cfgcmd manully_inform EV TC-%s Dn-%s",
                                   command_key, command_key));
}

const char *DownloadFaultCode(const char *result) {
  if (strcmp(result, "success") == 0) return "0";
  return strcmp(result, "upg_failed") == 0 ? "9002" : "9001";
}

unsigned DownloadDelay(const char *text) {
  long long seconds = strtoll(text, nullptr, 10);
  return seconds <= 0 ? 0 : static_cast<unsigned>(std::min<long long>(seconds, UINT32_MAX));
}
