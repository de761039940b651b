// For programs that link the framework of requests and have no node that an op function serves.
#include "ams_common_api.h"

const OpFuncEntry *const FUNC_TABLES[] = {nullptr};
