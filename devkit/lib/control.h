// What a simulator and the program that drives it say to each other: a JSON object each way. The
// request has the "verb" and its arguments; the reply has the "status" to end with, the "text" to
// print, or the reason, and the "state" where that was asked for. Any thread.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "exit_status.h"

using Json = nlohmann::ordered_json;

/* The JSON in what arrived from outside; discarded (is_discarded) when it is none, or nested deeper
   than 100 levels: whoever prints it would need as much of the stack. */
Json JsonIn(std::string_view bytes);

Json ControlReply(int status, const std::string &text);

/* As it travels; what is no UTF-8 in it is replaced. */
std::string ControlBytes(const Json &json);

/* The number of that name; `absent` when there is none, INT_MIN of what is no int. */
int ControlNumber(const Json &object, const char *name, int absent);

/* The reply in what arrived; null: that is none. */
Json ControlReplyIn(const std::string &bytes);

/* Asks over the stream socket at `path`, whose request ends with that direction. The reply; null:
   none came in time. */
Json ControlAsk(const char *path, const Json &request, double limit_s);

/* Prints a reply, which is not null, for `program`: the state as JSON or through `print`. The
   status to end with. */
int ControlPrint(const char *program, const Json &reply, bool json,
                 void (*print)(const Json &state));
