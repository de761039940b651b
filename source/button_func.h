// The front-panel keys. On the thread of "sysmgr:button_proc".
#pragma once

#include <cstdint>

enum : uint32_t {
  EV_KEY = 0x100051,        /* second 32-bit word, in the machine's order: the event's number */
  EV_KEY_SWITCH = 0x100052, /* byte 0: 1 is on, else off; byte 1: not 0 means not for the keys */
};

/* Handlers of the module: the key driver is programmed; keys are switched on and off; a key event
   runs the key script; the LAN key is told to the port manager. */
void ButtonInit(int32_t id, const void *data, uint32_t len);
void ButtonKeySwitch(int32_t id, const void *data, uint32_t len);
void ButtonKey(int32_t id, const void *data, uint32_t len);
void ButtonLanTimer(int32_t id, const void *data, uint32_t len);
