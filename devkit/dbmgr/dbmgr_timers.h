// The timers of the module "dbmgr:dbmgt".
#pragma once

enum { WATCH_TELL_TIMER, WATCH_PAUSE_TIMER, GIVE_BACK_TIMER };
