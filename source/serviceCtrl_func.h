// Service access control: from which side, from which addresses and over which IP version the
// gateway's own services can be reached. All on the thread of "sysmgr:capabinfo".
#pragma once

#include "ams_common_api.h"
#include "webserver_func.h"

enum { SCL_KIND_FIXED = 1, SCL_KIND_TCP = 2, SCL_KIND_UDP = 4 };
enum { SCL_IPV4 = 0, SCL_IPV6 = 1, SCL_VERSIONS = 2, SCL_SERVICES = 8 };

/* A service that entries can name, and whose packets are dropped where no entry lets them in. */
struct SclServiceRow {
  const char *name;
  const char *match1, *match2; /* iptables' words for its packets, of SCL_KIND_FIXED; or NULL */
  int32_t kind;                /* SCL_KIND_... */
  const char *port_path;       /* parameter with the daemon's ports, separated by commas; or NULL */
  int32_t default_port;        /* of an entry with port 0; 0 or less: none */
};

extern const SclServiceRow SclServiceTable[SCL_VERSIONS][SCL_SERVICES];

/* The ports of the web server, as the HTTP entries say. */
extern WebPorts WebPortList;

/* 1: the next build of the ACCEPT rules restarts the web server also when its ports stay as they
   are. Nothing in the daemon sets it; it is for modules that change the server's other settings. */
extern int WebRestartForced;

/* Handlers of "ServiceAccessControl." and of its list. Each returns 0 whatever the commands do. */
int FuncSCL(OpFuncArg *arg);
int FuncSrvLists(OpFuncArg *arg);

/* Flushes every chain and fills it from the data model. Returns 0. */
int SclRebuild();

/* The part of SclRebuild that the entries make: the ACCEPT chains, the nat chain and the web
   server's ports. */
void SclBuildAcceptRules();
