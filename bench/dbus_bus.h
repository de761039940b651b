// Round trips through sd-bus: the peer of the bus.
#pragma once

#include "bare_bus.h"

/* Round trips of a sd-bus method call with texts of the same sizes through a private dbus-daemon.
   Empty when there is no dbus-daemon. */
std::function<void()> DbusTrip(WireSizes sizes);
