// SNMP: snmpd and its configuration file.
#pragma once

#include "ams_common_api.h"

int FuncServSNMP(OpFuncArg *arg);
