// Names that the modem simulator and the board's modem tools share.
#pragma once

/* The tty that the daemon's table of USB modems has for "2c7c 0125". */
constexpr char kModemTty[] = "/dev/ttyUSB3";
constexpr char kModemDevinfo[] = "/var/tmp/devinfo"; /* "VENDOR PRODUCT" of the attached modem */
