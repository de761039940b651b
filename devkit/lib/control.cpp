// Requests to simulators; see control.h.
#include "control.h"

#include <cstdio>

Json ControlReply(int status, const std::string &text) {
  return {{"status", status}, {"text", text}};
}

std::string ControlBytes(const Json &json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json ControlReplyIn(const std::string &bytes) {
  Json reply = Json::parse(bytes, nullptr, false);
  bool whole = reply.is_object() && reply.contains("status") && reply["status"].is_number_integer();
  return whole ? reply : Json();
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
