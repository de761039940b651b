// The op functions of "InternetGatewayDevice.Services." that are a script call or two; the FUNC
// table of the module (in capabinfo_thread.h) is in services_func.cpp too.
#pragma once

/* Published when the user list changed; carries the node's path with its NUL. */
enum : unsigned { EV_USER_LIST_CHANGED = 0x100054 };
