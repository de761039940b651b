// Requests to simulators; see control.h.
#include "control.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstring>

namespace {

/* Connected, or -1. */
int Connect(const char *path, double limit_s) {
  struct sockaddr_un address = {AF_UNIX, ""};
  strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  int end = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  auto whole = static_cast<time_t>(limit_s);
  const struct timeval limit = {
      whole, static_cast<suseconds_t>((limit_s - static_cast<double>(whole)) * 1e6)};
  (void)setsockopt(end, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit); /* cannot fail */
  (void)setsockopt(end, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  if (connect(end, reinterpret_cast<struct sockaddr *>(&address), sizeof address) == 0) return end;
  close(end);
  return -1;
}

}  // namespace

Json JsonIn(std::string_view bytes) {
  constexpr int kLevels = 100;
  bool deep = false;
  auto look = [&](int above, Json::parse_event_t event, const Json &) {
    const bool opens =
        event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start;
    deep = deep || (opens && above >= kLevels);
    return !deep;
  };
  Json json = Json::parse(bytes, look, false);
  return deep ? Json(Json::value_t::discarded) : json;
}

Json ControlReply(int status, const std::string &text) {
  return {{"status", status}, {"text", text}};
}

std::string ControlBytes(const Json &json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

int ControlNumber(const Json &object, const char *name, int absent) {
  const auto found = object.find(name);
  if (found == object.end()) return absent;
  if (!found->is_number_integer()) return INT_MIN;
  if (found->is_number_unsigned() && found->get<uint64_t>() > INT_MAX) return INT_MIN;
  const auto number = found->get<int64_t>();
  return number < INT_MIN || number > INT_MAX ? INT_MIN : static_cast<int>(number);
}

Json ControlReplyIn(const std::string &bytes) {
  Json reply = JsonIn(bytes);
  bool whole = reply.is_object() && reply.contains("status") &&
               reply["status"].is_number_integer() &&
               (!reply.contains("text") || reply["text"].is_string());
  return whole ? reply : Json();
}

Json ControlAsk(const char *path, const Json &request, double limit_s) {
  std::string text = ControlBytes(request), answer;
  int end = Connect(path, limit_s);
  if (end < 0) return {};
  ssize_t length = -1;
  if (write(end, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
      shutdown(end, SHUT_WR) == 0) {
    char bytes[16 * 1024];
    while ((length = read(end, bytes, sizeof bytes)) > 0)
      answer.append(bytes, static_cast<size_t>(length));
  }
  close(end);
  return ControlReplyIn(length == 0 ? answer : "");
}

int ControlPrint(const char *program, const Json &reply, bool json,
                 void (*print)(const Json &state)) {
  int status = reply["status"];
  std::string text = reply.value("text", "");
  if (status != EXIT_DONE)
    fprintf(stderr, "%s: %s\n", program, text.c_str());
  else if (!reply.contains("state"))
    fputs(text.c_str(), stdout);
  else if (json)
    puts(reply["state"].dump(2).c_str());
  else
    print(reply["state"]);
  return status;
}
