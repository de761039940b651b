// Verbs that are an endpoint of any name, in place of a process that the desk does not have.
// "listen" prints each message on a line: who sent it, its id, its length and its text. "publish"
// notifies.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>

#include "ams_common_api.h"
#include "cfgcmd.h"
#include "tds_desk.h"

namespace {

bool as_json;
std::mutex mutex;
std::condition_variable changed;
long printed = 0; /* messages so far */

/* As the shell's $'...' writes it; the NUL that ends a text is left out. */
std::string Shown(const char *bytes, uint32_t length) {
  std::string text;
  if (length > 0 && bytes[length - 1] == '\0') --length;
  for (uint32_t i = 0; i < length; ++i) {
    unsigned char byte = static_cast<unsigned char>(bytes[i]);
    char escape[8];
    snprintf(escape, sizeof escape, "\\x%02x", byte);
    if (byte < ' ' || byte > '~' || byte == '\\')
      text += escape;
    else
      text += bytes[i];
  }
  return text;
}

void Print(int32_t id, const void *data, uint32_t length) {
  if (static_cast<uint32_t>(id) == kProbe) return;
  char sender[TDS_NAME_SIZE], number[16];
  Sender(sender);
  snprintf(number, sizeof number, "0x%x", static_cast<uint32_t>(id));
  std::string text = Shown(static_cast<const char *>(data), length);
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
  return {kRefused, "cannot serve " + name + ": a name like \"utils:logmgt\" that no process has"};
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

}  // namespace

Outcome VerbListen(const Words &words, const Options &options) {
  static const MsgEntry messages[] = {{TDS_MSG_ANY, Print}, {0, nullptr}};
  long count = 0;
  if (words.size() > 1 && !ParseNumber(words[1], 1, INT32_MAX, &count))
    return {kUsage, "usage: cfgcmd listen NAME [COUNT] (a number above 0)"};
  as_json = options.json;
  const std::string &name = words[0];
  if (Serve(name, messages) != 0) return CannotServe(name);

  std::unique_lock<std::mutex> lock(mutex);
  auto limit = std::chrono::milliseconds(options.limit_ms);
  while (count == 0 || printed < count) {
    long before = printed;
    auto more = [&] { return printed > before; };
    if (count == 0)
      changed.wait(lock, more);
    else if (!changed.wait_for(lock, limit, more))
      return {kNoAnswer, name + " got " + std::to_string(printed) + " messages in time, not " +
                             std::to_string(count) + ": --timeout waits longer for each"};
  }
  return {};
}

Outcome VerbPublish(const Words &words, const Options &options) {
  static const MsgEntry messages[] = {{kPublish, OnPublish}, {0, nullptr}};
  Message message;
  if (!ParseMessage(words, &message) || message.wait)
    return {kUsage, "usage: cfgcmd publish NAME ID [--text T | --hex H]"};
  if (Serve(words[0], messages) != 0) return CannotServe(words[0]);
  std::string payload(4, '\0'), reply;
  appt_PutWord(&payload[0], static_cast<uint32_t>(message.id));
  return Call(words[0].c_str(), kPublish, payload + message.payload, options, &reply);
}
