// The network's answers to service codes: any bytes through the parser of "+CUSD:" lines.
#include "check.h"
#include "sms_cusd.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string answer(TextOf(data, size));
  const std::string text = CusdText(answer);
  if (text.empty()) return 0;
  Check(answer.find("\",") != answer.npos, "a text out of nothing");
  Check(text.size() <= 4096, "the text is longer than its answer");
  /* What has no coding comes as it is. */
  if (answer.find_first_of("0123456789", answer.find('"')) == answer.npos)
    Check(answer.find(text) != answer.npos, "the text is not the answer's");
  return 0;
}
