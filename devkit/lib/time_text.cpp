// Times as texts; see time_text.h.
#include "time_text.h"

#include <cstdio>
#include <ctime>

#include "tds.h"

int64_t TimeMs() {
  int32_t seconds, milliseconds;
  tds_gettime(&seconds, &milliseconds);
  return int64_t{seconds} * 1000 + milliseconds;
}

std::string TimeText(int64_t milliseconds) {
  const time_t seconds = static_cast<time_t>(milliseconds / 1000);
  struct tm parts = {};
  char text[32], fraction[8];
  localtime_r(&seconds, &parts);
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  snprintf(fraction, sizeof fraction, ".%03d", static_cast<int>(milliseconds % 1000));
  return std::string(text) + fraction;
}
