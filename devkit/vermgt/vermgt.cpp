// The version manager of the desk, endpoint "tdsmgr:vermgt": serves orders (vermgt_order.h) and
// what vermgtctl asks, which makes it misbehave.
#include "vermgt.h"

#include "command_line.h"
#include "service.h"
#include "vermgt_image.h"
#include "vermgt_order.h"

namespace {

VersionJson Reply(int status, const std::string &text) {
  return {{"status", status}, {"text", text}};
}

VersionJson State(const VersionJson &) {
  VersionJson reply = Reply(EXIT_DONE, "");
  reply["state"] = OrderState();
  return reply;
}

VersionJson Behave(const VersionJson &request) {
  std::string why = OrderBehave(request.value("how", ""), request.value("amount", int64_t{0}));
  return Reply(why.empty() ? EXIT_DONE : EXIT_USAGE, why);
}

VersionJson RunVerb(const VersionJson &request) {
  try {
    std::string verb = request.is_object() ? request.value("verb", "") : "";
    if (verb == "state") return State(request);
    if (verb == "behave") return Behave(request);
    return Reply(EXIT_USAGE, "no verb \"" + verb + "\": see vermgtctl --help");
  } catch (const VersionJson::exception &error) {
    return Reply(EXIT_USAGE, std::string("a request that is none of vermgtctl's: ") + error.what());
  }
}

void TakeControl(int32_t, const void *data, uint32_t length) {
  const char *text = static_cast<const char *>(data);
  VersionJson request = VersionJson::parse(text, text + length, nullptr, false);
  (void)AnswerSender(kVersionControl, /* it does not want to know */
                     RunVerb(request).dump(-1, ' ', false, VersionJson::error_handler_t::replace));
}

const MsgEntry kMessages[] = {
    {kVersionOrder, TakeOrder},
    {kVersionState, TakeWord},
    {kVersionControl, TakeControl},
    {0, nullptr},
};

const ModuleEntry kModules[] = {
    {kVersionManager, {0, 0}, kMessages},
    {nullptr, {0, 0}, nullptr},
};

}  // namespace

int main(int argc, char **argv) {
  CLI::App app("Version manager of the gateway on a desk; vermgtctl --help tells what an image is.",
               "vermgt");
  app.add_option("--patience", order_patience,
                 "Seconds without a word of its orderer after which an order makes way for another")
      ->check(CLI::Range(0, 86400))
      ->capture_default_str();
  if (auto end = ParseCommandLine(&app, argc, argv)) return *end;
  ServiceBegin();
  ImageDrop(); /* of one that died half-way */
  return ServiceRun("vermgt", kModules);
}
