// IPsec, GRE, L2TP, VPN-lite and the rate limit: the command lines of each op, the accelerator, the
// timer of the IPsec poll. What the poll does with the tunnels is in services_test.cpp.
#include <set>

#include "capabinfo_thread.h"
#include "services_func.h"
#include "support.h"

namespace {

using Lines = std::vector<std::string>;

#define IPSEC "InternetGatewayDevice.Services.X_KVO_IPSec."

const std::string kTunnels = IPSEC "TunnelList";
const std::string kAccelerate = IPSEC "X_KVO_IPSec_Hardware_Accelate_Enable";

class Tunnels : public StoreTest {
 protected:
  std::string DataModel() const override {
    std::string model = StoreTest::DataModel();
    const std::string mark = "op=\"FuncServIPSec\">";
    return model.insert(model.find(mark) + mark.size(),
                        "<X_KVO_IPSec_Hardware_Accelate_Enable type=\"boolean\"/>");
  }
};

/* What each op runs, line by line, with the path "A.7" ("" at the start, as the module gives it).
   An op that is not here runs nothing. */
struct ScriptCase {
  const char *name;
  int op;
  std::string lines;
};

const ScriptCase kScripts[] = {
    {"FuncServIPSecTunnelList", TMF_INIT, "/usr/syscfg/ipsec_cfg.sh init  &\n"},
    {"FuncServIPSecTunnelList", TMF_SET, "/usr/syscfg/ipsec_cfg.sh set A.7 &\n"},
    {"FuncServIPSecTunnelList", TMF_DEL, "/usr/syscfg/ipsec_cfg.sh del A.7 &\n"},
    {"FuncServIPSecCertificateList", TMF_INIT, "/usr/syscfg/ipsec_cert.sh init  &\n"},
    {"FuncServIPSecCertificateList", TMF_SET, "/usr/syscfg/ipsec_cert.sh set A.7 &\n"},
    {"FuncServIPSecCertificateList", TMF_DEL, "/usr/syscfg/ipsec_cert.sh del A.7 &\n"},
    {"FuncServIPSecCaCertificateList", TMF_INIT, "/usr/syscfg/ipsec_cacert.sh init  &\n"},
    {"FuncServIPSecCaCertificateList", TMF_SET, "/usr/syscfg/ipsec_cacert.sh set A.7 &\n"},
    {"FuncServIPSecCaCertificateList", TMF_DEL, "/usr/syscfg/ipsec_cacert.sh del A.7 &\n"},
    {"FuncServGRETunnel", TMF_INIT, "mkdir -p /var/.ipgre\n"},
    {"FuncServGRETunnelList", TMF_SET,
     "/usr/syscfg/ipgre_cfg.sh action=\"set\" tnllist=\"A.7\" &\n"},
    {"FuncServGRETunnelList", TMF_DEL,
     "/usr/syscfg/ipgre_cfg.sh action=\"del\" tnllist=\"A.7\" &\n"},
    {"FuncServL2TP", TMF_INIT,
     "mkdir -p /var/.l2tp\nmkdir -p /var/log\ntouch /tmp/.chap-secrets\n"
     "touch /tmp/.pap-secrets\n"},
    {"FuncServL2TPLac", TMF_SET, "/usr/syscfg/l2tp_cfg.sh action=\"set\" tnllist=\"A.7\" &\n"},
    {"FuncServL2TPLac", TMF_DEL, "/usr/syscfg/l2tp_cfg.sh action=\"del\" tnllist=\"A.7\" &\n"},
    {"FuncServL2TPLns", TMF_INIT, "mkdir -p /var/.l2tp/lns\ntouch  /var/.l2tp/lns/user_db\n"},
    {"FuncServL2TPLns", TMF_SET, "/usr/syscfg/l2tp_cfg.sh action=\"set\" tnllist=\"A.7\" &\n"},
    {"FuncServL2TPUserList", TMF_ADD,
     "/usr/syscfg/l2tp_cfg.sh action=\"addu\" tnllist=\"A.7\" &\n"},
    {"FuncServL2TPUserList", TMF_DEL,
     "/usr/syscfg/l2tp_cfg.sh action=\"delu\" tnllist=\"A.7\" &\n"},
    {"FuncServL2TPLacStats", TMF_GET,
     "/usr/syscfg/l2tp_cfg.sh action=\"stats\" tnllist=\"A.7\" \n"},
    {"FuncServL2TPLacConnInfo", TMF_GET,
     "/usr/syscfg/l2tp_cfg.sh action=\"connInfo\" tnllist=\"A.7\" \n"},
    {"FuncServL2TPLnsStats", TMF_GET, "/usr/syscfg/l2tp_cfg.sh action=\"lnsstats\" \n"},
    {"FuncServL2TPLnsConnInfo", TMF_GET, "/usr/syscfg/l2tp_cfg.sh action=\"lnsconnInfo\" \n"},
    {"FuncServVpnLite", TMF_INIT, "mkdir -p /var/vpnlite\n"},
    {"FuncServVpnLite", TMF_SET, "/usr/syscfg/vpnlite_cfg.sh action=\"set\" &\n"},
    {"FuncServVpnLiteRouteList", TMF_ADD,
     "/usr/syscfg/vpnlite_cfg.sh action=\"route_add\" routelist=\"A.7\" &\n"},
    {"FuncServVpnLiteRouteList", TMF_DEL,
     "/usr/syscfg/vpnlite_cfg.sh action=\"route_del\" routelist=\"A.7\" &\n"},
    {"FuncServVpnLiteStats", TMF_GET, "/usr/syscfg/vpnlite_cfg.sh action=\"stats\"\n"},
    {"FuncServVpnLiteConnInfo", TMF_GET, "/usr/syscfg/vpnlite_cfg.sh action=\"connInfo\"\n"},
    {"FuncRateLimitCfg", TMF_INIT,
     "mkdir -p /var/.bw_limit\n/usr/syscfg/bw_limit.sh action=\"init\" "
     "rulelist=\"InternetGatewayDevice.Services.X_KVO_RateLimit\" &\n"},
    {"FuncRateLimitPerPortCfg", TMF_SET,
     "/usr/syscfg/bw_limit.sh action=\"set\" rulelist=\"A.7\" &\n"},
    {"FuncRateLimitPerIPCfg", TMF_ADD,
     "/usr/syscfg/bw_limit.sh action=\"add\" rulelist=\"A.7\" &\n"},
    {"FuncRateLimitPerIPCfg", TMF_DEL,
     "/usr/syscfg/bw_limit.sh action=\"del\" rulelist=\"A.7\" &\n"},
};

std::string Expected(const std::string &name, int op) {
  for (const ScriptCase &one : kScripts)
    if (one.name == name && one.op == op) return one.lines;
  return "";
}

std::string Taken() {
  std::string text;
  for (const std::string &line : TakeCommands()) text += line + "\n";
  return text;
}

TEST_F(Tunnels, EveryOpRunsItsLinesAndNoOther) {
  std::set<std::string> names;
  for (const ScriptCase &one : kScripts) names.insert(one.name);
  for (const std::string &name : names)
    for (int op : {TMF_INIT, TMF_GET, TMF_SET, TMF_ADD, TMF_DEL}) {
      if (name == "FuncServIPSecTunnelList") continue; /* below: its timer needs a module */
      EXPECT_EQ(RunOp(kCapabInfoFuncTable, name, op, op == TMF_INIT ? "" : "A.7"), 0);
      EXPECT_EQ(Taken(), Expected(name, op)) << name << " op " << op;
    }
}

/* ---- accelerator ---- */

const std::string kFolders =
    "mkdir -p /var/ipsec/\nmkdir -p /var/ipsec/Dbg/\nmkdir -p /var/run\nmkdir -p /var/racoon/\n"
    "touch /var/racoon/racoon/sock\n";
const std::string kOn = "insmod /lib/ko/hi_kipsec.ko\ncs_cli /home/cli/api/ipsec/enable\n";
const std::string kOff = "cs_cli /home/cli/api/ipsec/disable\nrmmod hi_kipsec >/dev/null 2>&1\n";

TEST_F(Tunnels, TheAcceleratorFollowsItsParameter) {
  struct Case {
    const char *what;
    int op;
    const char *value;
    std::string lines;
  };
  const Case cases[] = {
      {"start, on", TMF_INIT, "1", kFolders + kOn},
      {"start, off", TMF_INIT, "0", kFolders},
      {"set, on", TMF_SET, "1", kOn},
      {"set, off", TMF_SET, "0", kOff},
      {"set, another value", TMF_SET, "2", kOff},
      {"set, no value", TMF_SET, "", kOff},
      {"get", TMF_GET, "1", ""},
  };
  for (const Case &one : cases) {
    SetLeaf(kAccelerate, one.value);
    EXPECT_EQ(RunOp(kCapabInfoFuncTable, "FuncServIPSec", one.op), 0) << one.what;
    EXPECT_EQ(Taken(), one.lines) << one.what;
  }
}

/* ---- poll ---- */

struct TimerCase {
  const char *what;
  int op, rows;
  uint32_t running; /* ms that the timer still runs before the op; 0: it does not */
  bool expires;     /* within the poll's period */
};

constexpr uint32_t kHour = 3600 * 1000;
const TimerCase kTimers[] = {
    {"a start without rows leaves it off", TMF_INIT, 0, 0, false},
    {"a start with a row starts it", TMF_INIT, 1, 0, true},
    {"a set starts it", TMF_SET, 1, 0, true},
    {"a set starts it anew", TMF_SET, 1, kHour, true},
    {"an add waits for the set", TMF_ADD, 1, 0, false},
    {"the last row's end stops it", TMF_DEL, 0, 200, false},
    {"another row's end does not", TMF_DEL, 1, 200, true},
};

constexpr uint32_t kExpired = TDS_MSG_TIMER + CAPABINFO_TIMER_IPSEC;

/* Whether the poll's timer expires, seen from a later timer of the same module. */
bool Expires(const TimerCase &one) {
  RunOnModule([&] {
    EXPECT_EQ(KillTimer(CAPABINFO_TIMER_IPSEC), 0) << "of an earlier test";
    (void)TakeMessages("sysmgr:test");
    int left_running = one.running == 0 ? 0 : SetTimer(CAPABINFO_TIMER_IPSEC, one.running);
    EXPECT_EQ(left_running, 0);
    std::string path = one.op == TMF_INIT ? "" : "A.7";
    EXPECT_EQ(RunOp(kCapabInfoFuncTable, "FuncServIPSecTunnelList", one.op, path), 0);
    EXPECT_EQ(SetTimer(0, 400), 0);
  });
  (void)AwaitMessage(TDS_MSG_TIMER);
  bool expired = false;
  RunOnModule([] { EXPECT_EQ(KillTimer(CAPABINFO_TIMER_IPSEC), 0); });
  for (const PeerMessage &message : TakeMessages("sysmgr:test"))
    expired = expired || message.id == kExpired;
  return expired;
}

TEST_F(Tunnels, ThePollRunsWhileThereAreRows) {
  StartModules();
  for (const TimerCase &one : kTimers) {
    char url[AMS_PATH_SIZE];
    LoadModel(DataModel());
    /* One row more comes and goes: the count follows both. */
    for (int row = 0; row <= one.rows; ++row)
      ASSERT_EQ(ams_add_obj(gptXmlTrees->root, kTunnels.c_str(), url), 0);
    ASSERT_EQ(ams_del_obj(gptXmlTrees->root, url), 0);
    EXPECT_EQ(Expires(one), one.expires) << one.what;
    EXPECT_EQ(Taken(), Expected("FuncServIPSecTunnelList", one.op)) << one.what;
  }
}

/* A line without text is no address: the one of the row before stays, which is also the one in use.
 */
TEST_F(Tunnels, ABlankAnswerOfThePollIsNone) {
  StartModules();
  for (const char *peer : {"a.example", "b.example"}) {
    char url[AMS_PATH_SIZE];
    ASSERT_EQ(ams_add_obj(gptXmlTrees->root, kTunnels.c_str(), url), 0);
    SetLeaf(std::string(url) + ".RemoteGatewayAddress", peer);
  }
  for (const char *answer : {"192.0.2.1\n", "192.0.2.1\n", "192.0.2.1\n", "\n"})
    AnswerPopen(answer);
  RunOnModule([] {
    RunMessage(kCapabInfoMsgTable, kExpired);
    EXPECT_EQ(KillTimer(CAPABINFO_TIMER_IPSEC), 0);
  });
  for (const std::string &line : TakeCommands())
    EXPECT_EQ(line.find("ipsec_cfg.sh set"), line.npos) << line;
}

}  // namespace
