// The front-panel keys. On the thread of "sysmgr:button_proc".
#pragma once

#include <cstdint>

enum : uint32_t {
  EV_KEY = 0x100051,        /* second 32-bit word, in the machine's order: the event's number */
  EV_KEY_SWITCH = 0x100052, /* byte 0: 1 is on, else off; byte 1: not 0 means not for the keys */
  EV_LAN_KEY = 0x100053,    /* to "portmgr:lan": 4 zero bytes */
};

enum { BUTTON_TIMER_LAN = 0 };

/* Handlers of the module: the key driver is programmed; keys are switched on and off; a key event
   runs the key script; the LAN key is told to the port manager. */
void ButtonInit(int32_t id, const void *data, uint32_t len);
void ButtonKeySwitch(int32_t id, const void *data, uint32_t len);
void ButtonKey(int32_t id, const void *data, uint32_t len);
void ButtonLanTimer(int32_t id, const void *data, uint32_t len);

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

/* A key function's texts as the files have them; NULL: not in the file. */
struct KeyTexts {
  const char *gpio, *event, *trigger_type, *trigger_time, *abandon_time;
};

/* The timings that `texts` ask for in `timings`; their number. None is logged. */
int KeyTimings(const KeyTexts &texts, KeyTiming (&timings)[2]);

/* Writes the timings of all key functions, which stand in the two shell-style files, to `driver`.
   What goes wrong is logged and costs that key alone, or all when `driver` cannot be opened. */
void ProgramKeyDriver(const char *driver, const char *gpio_file, const char *event_file);
