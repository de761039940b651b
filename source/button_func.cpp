// The front-panel keys. The kernel's key driver measures presses: at the start it is told the
// timings of each key function, later its events run the key script.
#include "button_func.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "ams_common_api.h"
#include "ams_config_shell.h"
#include "ams_config_util.h"
#include "button_thread.h"

namespace {

constexpr char kKeyDriver[] = "/proc/gpio_config/key";
constexpr char kGpioFile[] = "/usr/syscfg/gpio_cfg.sh", kEventFile[] = "/usr/syscfg/key_event.sh";

constexpr int32_t kLanKeyEvent = 11;
constexpr uint32_t kLanDelay = 20;            /* ms */
constexpr uint32_t kLanKeyMessage = 0x100053; /* to "portmgr:lan": 4 zero bytes */

/* What the key driver takes as one write, in the machine's byte order: an event to raise when a key
   was held for some time. Times are in the driver's unit. */
struct KeyTiming {
  int32_t gpio;
  int32_t event;
  int32_t on_press; /* 1: raised on press, 0: on release */
  uint32_t trigger_time;
  uint32_t abandon_time; /* holds from here on count no more; 0: all count */
};
static_assert(sizeof(KeyTiming) == 20, "the driver takes records of 20 bytes");

/* Whether key events are acted on; touched by the module's thread alone. */
bool key_handling = true;

/* The keys of a key function, the event's in the event file, the others in the GPIO file; or the
   texts that the files have for them, NULL without. */
struct KeyFunction {
  const char *gpio, *event, *trigger_type, *trigger_time, *abandon_time;
};

/* The reset key has four; the driver tells the functions of one key apart by their times. */
const KeyFunction kKeyFunctions[] = {
    {"KVO_GPIO_WPS_KEY=", "MSG_MONITOR_EVT_WPS_INIT=", "KVO_TRIGGER_TYPE_WPS=",
     "KVO_TRIGGER_TIME_WPS=", "KVO_ABANDON_TIME_WPS="},
    {"KVO_GPIO_RESET_KEY=", "MSG_MONITOR_EVT_RESET_REBOOT=", "KVO_TRIGGER_TYPE_REBOOT=",
     "KVO_TRIGGER_TIME_REBOOT=", "KVO_ABANDON_TIME_REBOOT="},
    {"KVO_GPIO_RESET_KEY=", "MSG_MONITOR_EVT_RESET_FACTORY=", "KVO_TRIGGER_TYPE_RESTORE=",
     "KVO_TRIGGER_TIME_RESTORE=", "KVO_ABANDON_TIME_RESTORE="},
    {"KVO_GPIO_RESET_KEY=", "MSG_MONITOR_EVT_RESET_FACTORY_CLEAN=",
     "KVO_TRIGGER_TYPE_RESTORE_CLEAN=", "KVO_TRIGGER_TIME_RESTORE_CLEAN=",
     "KVO_ABANDON_TIME_RESTORE_CLEAN="},
    {"KVO_GPIO_RESET_KEY=", "MSG_MONITOR_EVT_BLINK=", "KVO_TRIGGER_TYPE_BLINK=",
     "KVO_TRIGGER_TIME_BLINK=", "KVO_ABANDON_TIME_BLINK="},
};

/* What is no number reads as 0, which leaves a key alone. Signed ones come out right, too. */
uint32_t Number(const char *text) {
  return text == nullptr ? 0 : static_cast<uint32_t>(strtoul(text, nullptr, 10));
}

using KeyText = char[128];

/* The value of `key` in `text`; NULL when `file` does not have it. */
const char *Find(const char *file, const char *key, KeyText &text) {
  return cfgFileKeyGet(file, key, text) == 0 ? text : nullptr;
}

/* The timings that `texts` ask for in `timings`; their number. None is logged. */
int KeyTimings(const KeyFunction &texts, KeyTiming (&timings)[2]) {
  const char *comma = texts.trigger_time == nullptr ? nullptr : strchr(texts.trigger_time, ',');
  const uint32_t times[2] = {Number(texts.trigger_time),
                             Number(comma == nullptr ? nullptr : comma + 1)};
  KeyTiming timing = {};
  timing.gpio = static_cast<int32_t>(Number(texts.gpio));
  timing.event = static_cast<int32_t>(Number(texts.event));
  timing.on_press = texts.trigger_type != nullptr && strcmp(texts.trigger_type, "PRESS") == 0;
  timing.abandon_time = Number(texts.abandon_time);
  if (timing.gpio == 0 || timing.event == 0 || (times[0] == 0 && times[1] == 0)) {
    AMS_PRINT(3, "gpio=%d, event=%d, triggerTime1=%lu, triggerTime2=%lu\n", timing.gpio,
              timing.event, static_cast<unsigned long>(times[0]),
              static_cast<unsigned long>(times[1]));
    return 0;
  }
  int count = 0;
  for (uint32_t time : times) {
    if (time == 0) continue;
    timings[count] = timing;
    timings[count++].trigger_time = time;
  }
  return count;
}

/* A board without the key or its event does not have the function. */
void ProgramFunction(int driver, const KeyFunction &function) {
  KeyText gpio, event, type, time, abandon;
  KeyTiming timings[2];
  if (Find(kGpioFile, function.gpio, gpio) == nullptr) return;
  if (Find(kEventFile, function.event, event) == nullptr) return;
  int count = KeyTimings({gpio, event, Find(kGpioFile, function.trigger_type, type),
                          Find(kGpioFile, function.trigger_time, time),
                          Find(kGpioFile, function.abandon_time, abandon)},
                         timings);
  for (int i = 0; i < count; ++i)
    if (write(driver, &timings[i], sizeof timings[i]) != static_cast<ssize_t>(sizeof timings[i]))
      AMS_PRINT(4, "Write gpio %d event %d failed!\n", timings[i].gpio, timings[i].event);
}

}  // namespace

void ButtonInit(int32_t, const void *, uint32_t) {
  int fd = open(kKeyDriver, O_RDWR | O_DSYNC | O_CLOEXEC);
  if (fd < 0) {
    AMS_PRINT(4, "open %s failed!\n", kKeyDriver);
    return;
  }
  for (const KeyFunction &function : kKeyFunctions) ProgramFunction(fd, function);
  close(fd);
}

void ButtonKeySwitch(int32_t, const void *data, uint32_t len) {
  const auto *bytes = static_cast<const uint8_t *>(data);
  if (len < 2) {
    AMS_PRINT(4, "key switch dropped: it has %u bytes of 2", len);
    return;
  }
  if (bytes[1] == 0) key_handling = bytes[0] == 1;
}

void ButtonKey(int32_t, const void *data, uint32_t len) {
  int32_t event;
  if (len < 8) {
    AMS_PRINT(4, "key event dropped: it has %u bytes of 8", len);
    return;
  }
  if (!key_handling) return;
  memcpy(&event, static_cast<const char *>(data) + 4, sizeof event);
  (void)cfgSystemCmd("/usr/syscfg/key_press.sh %d&", event);
  if (event == kLanKeyEvent) (void)SetTimer(BUTTON_TIMER_LAN, kLanDelay); /* a failure was logged */
}

void ButtonLanTimer(int32_t, const void *, uint32_t) {
  static const char kZeros[4] = {};
  (void)SendMsg(kLanKeyMessage, kZeros, sizeof kZeros, "portmgr:lan"); /* logged; nobody to tell */
}
