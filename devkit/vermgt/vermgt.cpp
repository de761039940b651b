// The version manager of the desk, endpoint "tdsmgr:vermgt": serves orders (vermgt_order.h) and
// what vermgtctl asks, which makes it misbehave.
#include "vermgt.h"

#include "command_line.h"
#include "service.h"
#include "vermgt_image.h"
#include "vermgt_order.h"

namespace {

Json State(const Json &) {
  Json reply = ControlReply(EXIT_DONE, "");
  reply["state"] = OrderState();
  return reply;
}

Json Behave(const Json &request) {
  std::string why = OrderBehave(request.value("how", ""), ControlNumber(request, "amount", 0));
  return ControlReply(why.empty() ? EXIT_DONE : EXIT_USAGE, why);
}

Json RunVerb(const Json &request) {
  try {
    std::string verb = request.is_object() ? request.value("verb", "") : "";
    if (verb == "state") return State(request);
    if (verb == "behave") return Behave(request);
    return ControlReply(EXIT_USAGE, "no verb \"" + verb + "\": see vermgtctl --help");
  } catch (const Json::exception &error) {
    return ControlReply(EXIT_USAGE,
                        std::string("a request that is none of vermgtctl's: ") + error.what());
  }
}

void TakeControl(int32_t, const void *data, uint32_t length) {
  const char *text = static_cast<const char *>(data);
  Json request = JsonIn({text, length});
  (void)AnswerSender(VERSION_CONTROL, /* it does not want to know */
                     ControlBytes(RunVerb(request)));
}

const MsgEntry kMessages[] = {
    {VERSION_ORDER, TakeOrder},
    {VERSION_STATE, TakeWord},
    {VERSION_CONTROL, TakeControl},
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
