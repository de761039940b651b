// Reading a list of short messages, without the time of the shell and the modem: the answers are
// there at once. Prints the medians for 128 messages and for 32 on standard error: the routines say
// on standard output what they do.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "nanoseconds.h"
#include "sms_box.h"

extern "C" int __wrap_system(const char *line);

namespace {

constexpr int kRounds = 101;
std::string listed; /* the modem's answer to AT+CMGL */

void Fail(const char *why) {
  fprintf(stderr, "list_bench: %s\n", why);
  exit(1);
}

void WriteText(const char *path, const std::string &text) {
  FILE *file = fopen(path, "we");
  if (file == nullptr || fwrite(text.data(), 1, text.size(), file) != text.size() ||
      fclose(file) != 0)
    Fail("it runs in the sandbox only");
}

/* Received messages, each with a minute of its own, every fourth a part of a long one. */
std::string MakeList(int count) {
  std::string text;
  char line[256];
  for (int i = 0; i < count; ++i) {
    bool part = i % 4 == 0;
    char stamp[16], reference[16];
    snprintf(stamp, sizeof stamp, "993092%02d%02d9580", i / 60 % 24, i % 60);
    snprintf(reference, sizeof reference, "06080477%02X02", i);
    snprintf(
        line, sizeof line, "+CMGL: %d,1,,60\r\n07917283010010F5%s0BC87238880900F10000%s%s%s\r\n",
        i + 1, part ? "44" : "04", stamp, part ? "12" : "0A",
        part ? (std::string(reference) + "01E8329BFD4697D9EC37").c_str() : "E8329BFD4697D9EC37");
    text += line;
  }
  return text + "OK\r\n";
}

double MedianNanoseconds(int count) {
  static char text[25600];
  std::vector<double> times;
  listed = MakeList(count);
  for (int round = 0; round < kRounds; ++round) {
    uint64_t start = Nanoseconds();
    int result = SHORTMSG_SMS_Get(0, text, sizeof text);
    uint64_t end = Nanoseconds();
    if (result != 0 || short_msg_counts.received != count) Fail("the list was not read");
    times.push_back(static_cast<double>(end - start));
  }
  std::sort(times.begin(), times.end());
  return times[kRounds / 2];
}

}  // namespace

int __wrap_system(const char *line) {
  std::string text = line;
  if (text.find("sms_getmsg.sh") != text.npos)
    WriteText("/var/atresult_msg", listed);
  else if (text.find("/var/atTmpResult") != text.npos)
    WriteText("/var/atTmpResult", "+CMS ERROR: 500\r\n");
  return 0;
}

int main() {
  double few = MedianNanoseconds(32), many = MedianNanoseconds(128);
  fprintf(stderr, "list/32x4 %.0f\nlist/128 %.0f\n", 4 * few, many);
  return 0;
}
