// What the desk's print service remembers for its message runtime: why a thread's work failed.
#pragma once

#include <string_view>

/* The records of level 4 and above that the calling thread has written since it last forgot them:
   text and "@P:", without time, module and last line feed, a NUL behind each; of many the last, of
   a long one the beginning and the end. At most kAmsDeskFailures bytes; good until the thread's
   next record. Takes no memory. */
constexpr unsigned kAmsDeskFailures = 1024;
std::string_view ams_desk_failures();
void ams_desk_forget_failures();
