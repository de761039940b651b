// How the programs of the devkit end.
#pragma once

enum ExitStatus : int {
  EXIT_DONE = 0,
  EXIT_REFUSED = 1, /* the other side said no */
  EXIT_USAGE = 2,
  EXIT_NO_ANSWER = 3, /* in time */
};
