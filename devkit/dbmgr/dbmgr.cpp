// The data-base manager of the desk: owns the data-model store, takes clients' requests at
// "dbmgr:dbmgt" and modules' acknowledgements at "msgcenter:cAckAgt".
#include <pthread.h>
#include <sched.h>

#include <cstdio>

#include "ams_common_api.h"
#include "command_line.h"
#include "dbmgr_forms.h"
#include "dbmgr_proto.h"
#include "dbmgr_request.h"
#include "dbmgr_route.h"
#include "dbmgr_timers.h"
#include "dbmgr_watch.h"
#include "exit_status.h"
#include "nvram.h"
#include "service.h"
#include "store_desk.h"
#include "sup_main.h"
#include "tds_desk.h"
#include "watch.h"

extern "C" {
PrtMapEntry DF_PRT_MAP[] = {{"default", 3}, {kDbmgrName, 3}, {nullptr, 0}};
}

namespace {

/* Whoever asks sleeps for the answer right behind that, so the kernel need not interrupt him for
   this thread: on one processor that would be a switch more a request. */
void InterruptNobody() {
  const struct sched_param none = {};
  (void)pthread_setschedparam(pthread_self(), SCHED_BATCH, &none); /* it is slower, that is all */
}

void Init(int32_t, const void *, uint32_t) {
  InterruptNobody();
  if (tds_serve_also(kApptAckPeer) != 0)
    AMS_PRINT(4, "no acknowledgement will arrive: %s cannot be served", kApptAckPeer);
}

const MsgEntry kMessages[] = {
    {TDS_MSG_INIT, Init},
    {kDbmgrRequest, RouteRequest},
    {kDbmgrCheck, RouteCheck},
    {kDbmgrWaits, RouteWaits},
    {kDbmgrWatch, WatchAsked},
    {TDS_MSG_TIMER + WATCH_TELL_TIMER, WatchTell},
    {TDS_MSG_TIMER + WATCH_PAUSE_TIMER, WatchPause},
    {TDS_MSG_TIMER + GIVE_BACK_TIMER, GiveBack},
    {EV_APPT_MSG_ACKTO_AGT, RouteAcknowledgement},
    {EV_APPT_MSG_NO_OBJECT, RouteNoObject},
    {TDS_MSG_PEER_GONE, RoutePeerGone},
    {TDS_MSG_ANY, WatchOther},
    {0, nullptr},
};

const ModuleEntry kModules[] = {
    {kDbmgrName, {0, 0}, kMessages},
    {nullptr, {0, 0}, nullptr},
};

}  // namespace

int main(int argc, char **argv) {
  CLI::App app("Data-base manager of the gateway on a desk.", "dbmgr");
  app.add_flag("--trust-values", trust_values, "Take values of any form, as the board does");
  if (auto end = ParseCommandLine(&app, argc, argv)) return *end;
  ServiceBegin();
  if (nvram_init_semaphore() != 0) { /* else the boot would pass for one of a burnt image */
    fprintf(stderr, "dbmgr: the settings cannot be had: the line above names the reason\n");
    return EXIT_REFUSED;
  }
  ams_desk_check_kept = CheckValue; /* a backup or a file on flash may hold anything */
  if (SDB_serverInit() != 0 || gptXmlTrees == nullptr || gptXmlTrees->root == nullptr) {
    fprintf(stderr, "dbmgr: the data model did not load: the lines above name the reason\n");
    return EXIT_REFUSED;
  }
  (void)nvram_commit(NVTYPE_STAGING); /* an earlier run may have died between flash and settings */
  return ServiceRun("dbmgr", kModules);
}
