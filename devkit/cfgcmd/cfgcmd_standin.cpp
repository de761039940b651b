// Verbs that are an endpoint of any name, in place of a process that the desk does not have.
// "listen" prints each message on a line: who sent it, its id, its length and its text. "publish"
// notifies.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

#include "appt_request.h"
#include "cfgcmd_messages.h"
#include "cfgcmd_print.h"
#include "escape.h"
#include "parse.h"
#include "tds_desk.h"

namespace {

bool as_json;
std::mutex mutex;
std::condition_variable changed;
int64_t printed = 0; /* messages so far */

void Print(int32_t id, const void *data, uint32_t length) {
  if (static_cast<uint32_t>(id) == kProbe) return;
  char sender[TDS_NAME_SIZE], number[16];
  Sender(sender);
  snprintf(number, sizeof number, "0x%x", static_cast<uint32_t>(id));
  std::string text(static_cast<const char *>(data), length);
  if (!text.empty() && text.back() == '\0') text.pop_back(); /* it ends a text */
  text = Escaped(text);
  if (as_json)
    text = Json({{"from", sender}, {"id", number}, {"length", length}, {"text", text}}).dump();
  else
    text = std::string(sender) + " " + number + " " + std::to_string(length) + " " + text;
  std::lock_guard<std::mutex> lock(mutex);
  puts(text.c_str());
  fflush(stdout); /* a reader that is gone is seen at the end */
  ++printed;
  changed.notify_all();
}

/* Serves `endpoint` from now on; a process can do so for one name. */
int Serve(const std::string &endpoint, const MsgEntry *messages) {
  static const std::string name = endpoint; /* the runtime keeps it */
  static const ModuleEntry modules[] = {{name.c_str(), {0, 0}, messages},
                                        {nullptr, {0, 0}, nullptr}};
  static const int served = SysInit(modules);
  return name == endpoint ? served : -1;
}

Outcome CannotServe(const std::string &name) {
  return {EXIT_REFUSED,
          "cannot serve " + name + ": a name like \"utils:logmgt\" that no process has"};
}

/* Only a module can publish, so a message of our own tells it what: the id, then the payload. */
constexpr uint32_t kPublish = 0x1ffffd;

void OnPublish(int32_t, const void *data, uint32_t length) {
  const char *bytes = static_cast<const char *>(data);
  char sender[TDS_NAME_SIZE];
  Sender(sender);
  if (length < 4) return; /* not ours: whoever sent it learns that it is not answered */
  /* A receiver that is gone is passed over, as on the board. */
  (void)TDS_NotifyRegistrant(appt_GetWord(bytes), bytes + 4, length - 4);
  (void)SynAckData_lib(nullptr, 0, kPublish, sender); /* nobody else to tell */
}

Outcome Listen(const Words &words, const Options &options) {
  static const MsgEntry messages[] = {{TDS_MSG_ANY, Print}, {0, nullptr}};
  int64_t count = 0;
  if (words.size() > 1 && !ParseNumber(words[1], 1, INT32_MAX, &count))
    return {EXIT_USAGE, "a number above 0"};
  as_json = options.json;
  const std::string &name = words[0];
  if (Serve(name, messages) != 0) return CannotServe(name);

  std::unique_lock<std::mutex> lock(mutex);
  auto limit = std::chrono::milliseconds(options.limit_ms);
  while (count == 0 || printed < count) {
    int64_t before = printed;
    auto more = [&] { return printed > before; };
    if (count == 0)
      changed.wait(lock, more);
    else if (!changed.wait_for(lock, limit, more))
      return {EXIT_NO_ANSWER, name + " got " + std::to_string(printed) + " messages in time, not " +
                                  std::to_string(count) + ": --timeout waits longer for each"};
  }
  return {};
}

Outcome Publish(const Words &words, const Options &options) {
  static const MsgEntry messages[] = {{kPublish, OnPublish}, {0, nullptr}};
  Message message;
  if (!ParseMessage(words, &message) || message.wait) return {EXIT_USAGE, ""};
  if (Serve(words[0], messages) != 0) return CannotServe(words[0]);
  std::string payload(4, '\0'), reply;
  appt_PutWord(&payload[0], static_cast<uint32_t>(message.id));
  return Call(words[0].c_str(), kPublish, payload + message.payload, options.limit_ms, &reply);
}

}  // namespace

const Verb kStandinVerbs[] = {
    {"listen", "NAME [COUNT]", "Be an endpoint and print the messages it gets, COUNT of them", 1, 2,
     false, false, Listen, nullptr, true},
    {"publish", "NAME ID [--text T | --hex H]",
     "Be an endpoint and notify all that registered for its message", 2, 4, true, true, Publish},
    {},
};
