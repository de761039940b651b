// The requests of everybody and the notifications, as they pass the data-base manager, as events
// for the pages.
#pragma once

/* Follows them for ever, while a page looks on: for nobody the data-base manager notes nothing.
   What passes while it is gone is not seen. One thread. */
[[noreturn]] void FollowForEver();
