// Waiting for the ports of a server that was just killed, so that the next one gets them.
#pragma once

#include <vector>

/* Returns when a server could have each of the ports (`type`: SOCK_STREAM or SOCK_DGRAM), at once
   where that is so; after two seconds all the same, with the port logged at level 4. Numbers that
   are no port are passed over. Holds the calling thread; any may call it. */
void AwaitFreePorts(int type, const std::vector<int> &ports);
