// The daemon behind the data-base manager: requests, messages and values of leaves for its real op
// functions and handlers, over the gateway's own data model. An input is steps; each is a byte for
// its kind, two for what it is about, and a text up to the next byte 0xFE.
#include <algorithm>
#include <utility>
#include <vector>

#include "appt_dispatch.h"
#include "appt_request.h"
#include "dbmgr_forms.h"
#include "modem_at.h"
#include "serve.h"
#include "serviceCtrl_func.h"
#include "sms_box.h"
#include "sms_ussd.h"
#include "store_desk.h"
#include "sup_main.h"
#include "tds_heap.h"

namespace {

constexpr char kRoot[] = "InternetGatewayDevice", kModel[] = "/etc/tr098_data_model.xml";
constexpr size_t kTextMax = 255; /* what a request carries */
constexpr uint32_t kCommands[] = {APPT_CMD_GET,  APPT_CMD_SET,  APPT_CMD_ADD,    APPT_CMD_DEL,
                                  APPT_CMD_LIST, APPT_CMD_ATTR, APPT_CMD_REFRESH};
constexpr const char *kFiles[] = {"/var/tmp/devinfo", "/var/snmpd.conf", "/var/samba_holes"};

std::vector<std::string> nodes, leaves; /* that there are now */
std::vector<const MsgEntry *> messages; /* but the start and the requests */
std::string output;                     /* of a command, and what another process answers */

/* The tree as its file has it: paths and values, in its order. */
std::vector<std::pair<std::string, std::string>> loaded;
bool rows_touched = true; /* numbers of rows may be used up, too */

template <typename List>
const auto &At(const List &list, unsigned number) {
  return list[number % std::size(list)];
}

int Note(const AmsDeskNode &node, void *) {
  (node.is_leaf ? leaves : nodes).emplace_back(node.path);
  return 0;
}

void Look() {
  nodes.clear();
  leaves.clear();
  Check(ams_desk_walk(kRoot, true, Note, nullptr) == 0, "the data model cannot be read");
}

void Request(uint32_t command, const std::string &url, const std::string &text) {
  std::string frame(APPT_HEAD_SIZE, '\0');
  appt_PutWord(&frame[APPT_AT_COMMAND], command);
  appt_PutWord(&frame[APPT_AT_CODE], APPT_CODE_REQUEST);
  frame += static_cast<char>(url.size());
  frame.append(url.c_str(), url.size() + 1);
  frame += static_cast<char>(text.size());
  if (!text.empty()) frame.append(text.c_str(), text.size() + 1);
  MsgArg arg = {};
  if (appt_FillMsgArg(&arg, frame.data(), static_cast<uint32_t>(frame.size())) == 0)
    (void)appt_RunRequest(&arg); /* any result will do */
  __tds_free(arg.rBuf);
}

/* Whether the data-base manager lets the text through, in the form that it gives it. */
bool Takes(const std::string &path, std::string *text) {
  AmsDeskLeaf leaf;
  std::string why;
  Check(ams_desk_leaf(path.c_str(), &leaf) == 0, "a leaf that is not there");
  return CheckValue(leaf, text, &why) == 0;
}

/* ---- steps ---- */

void Set(unsigned about, std::string text) {
  const std::string &path = At(leaves, about);
  const size_t dot = path.rfind('.');
  if (ams_check_node(gptXmlTrees->root, path.c_str()) != 0 || !Takes(path, &text)) return;
  text = path.substr(dot + 1) + "=" + text;
  if (text.size() <= kTextMax) Request(APPT_CMD_SET, path.substr(0, dot), text);
}

/* A value that somebody else has given, or a request before: nothing acts on it. */
void Hold(unsigned about, std::string text) {
  const std::string &path = At(leaves, about);
  if (ams_check_node(gptXmlTrees->root, path.c_str()) == 0 && Takes(path, &text))
    (void)ams_mxml_fset_leaf(path.c_str(), text.c_str()); /* it may be too long */
}

void Ask(unsigned about, std::string text) {
  text.resize(std::min(text.size(), kTextMax));
  const uint32_t command = At(kCommands, about / 256);
  if (command == APPT_CMD_SET) return; /* Set's: a raw list would pass the data-base manager by */
  const std::string url = At(nodes, about % 256);
  AmsDeskPlace place = {};
  (void)ams_desk_place(url.c_str(), &place); /* it may be gone */
  const bool rows =
      (command == APPT_CMD_ADD && place.is_array) || (command == APPT_CMD_DEL && place.is_instance);
  Request(command, url, text);
  if (rows) {
    rows_touched = true;
    Look();
  }
}

void Tell(unsigned about, std::string text) {
  const MsgEntry *message = At(messages, about);
  const auto block = Block(reinterpret_cast<const uint8_t *>(text.data()), text.size(), 0);
  message->handler(static_cast<int32_t>(message->id), text.empty() ? nullptr : block.get(),
                   static_cast<uint32_t>(text.size()));
}

void Print(unsigned, std::string text) { output = text; }

void File(unsigned about, std::string text) { PutFile(At(kFiles, about), text); }

/* ---- beginning ---- */

int Keep(const AmsDeskNode &node, void *) {
  loaded.emplace_back(node.path, node.value);
  return 0;
}

void Load() {
  Check(LoadModel(fopen(kModel, "re")), "the gateway's data model does not load");
  Look();
  loaded.clear();
  Check(ams_desk_walk(kRoot, true, Keep, nullptr) == 0, "the data model cannot be read");
  rows_touched = false;
}

struct Difference {
  size_t at = 0; /* node that is next */
  std::vector<size_t> values;
};

/* Ends the walk at another node than was loaded. */
int Compare(const AmsDeskNode &node, void *context) {
  auto *difference = static_cast<Difference *>(context);
  if (difference->at == loaded.size() || node.path != loaded[difference->at].first) return 1;
  if (node.value != loaded[difference->at].second) difference->values.push_back(difference->at);
  ++difference->at;
  return 0;
}

/* Gives leaves the values that they were loaded with; none is on the change list then. False: the
   tree has other rows. */
bool PutBack() {
  Difference difference;
  char *changes = nullptr;
  if (ams_desk_walk(kRoot, true, Compare, &difference) != 0 || difference.at != loaded.size())
    return false;
  for (size_t at : difference.values)
    Check(ams_mxml_fset_leaf(loaded[at].first.c_str(), loaded[at].second.c_str()) == 0,
          "a value cannot be put back");
  Check(ams_read_withAttr(gptXmlTrees->root, kRoot, 1, &changes) == 0, "no change list");
  __tds_free(changes);
  return true;
}

/* The tree as its file has it: an input that fails does so alone. */
void Begin() {
  if (rows_touched || !PutBack()) Load();
  WebPortList = {1, {80}};
  WebRestartForced = 0;
  output.clear();
  short_msg_state = {};
  short_msg_ussd_time = 0;
  msgResult = 0;
  for (int index = 0; index < 10; ++index) ShortMsgForget(index);
  for (const char *file : kFiles) (void)unlink(file); /* most are not there */
}

/* A line that was cut would leave a quote open. */
int CheckLine(const char *line) {
  for (char quote = '\0'; *line != '\0'; ++line) {
    if (quote == '\0' && (*line == '"' || *line == '\''))
      quote = *line;
    else if (*line == quote)
      quote = '\0';
    Check(line[1] != '\0' || quote == '\0', "a command line ends within quotes");
  }
  return 0;
}

}  // namespace

WRAPPED(int, system, const char *line) { return CheckLine(line); }
WRAPPED(FILE *, popen, const char *line, const char *) {
  CheckLine(line);
  return fmemopen(output.data(), output.size(), "re");
}
WRAPPED(int, pclose, FILE *stream) { return fclose(stream); }
WRAPPED(int, usleep, useconds_t) { return 0; }
WRAPPED(unsigned, sleep, unsigned seconds) { return SleepOfOthers(seconds); }
WRAPPED(void, tds_delay, uint32_t) {}
WRAPPED(int, SetTimer, int, uint32_t) { return 0; }
WRAPPED(int, KillTimer, int) { return 0; }
WRAPPED(int, SendMsg, uint32_t, const void *, uint32_t, const char *) { return 0; }
WRAPPED(int, SendMsg_syn_lib, uint32_t, const void *, uint32_t, const char *, void **reply,
        uint32_t *reply_len) {
  if (output.empty()) return -1;
  *reply_len = static_cast<uint32_t>(output.size());
  *reply = memcpy(__tds_malloc(output.size(), "SendMsg_syn_lib"), output.data(), output.size());
  return 0;
}
WRAPPED(int, TDS_NotifyRegistrant, uint32_t, const void *, uint32_t) { return 0; }
WRAPPED(int, pthread_detach, pthread_t) { return 0; }
/* What a thread does is done before its creator goes on. */
WRAPPED(int, pthread_create, pthread_t *, const pthread_attr_t *, void *(*run)(void *),
        void *argument) {
  (void)run(argument);
  return 0;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  Serve();
  stdout = Nowhere();
  Begin();
  for (const ModuleEntry *module = kSysmgrModules; module->name != nullptr; ++module)
    for (const MsgEntry *row = module->table; row->handler != nullptr; ++row)
      if (row->id != TDS_MSG_INIT && row->id != EV_APPT_MSG_REQUEST) messages.push_back(row);
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  void (*const steps[])(unsigned, std::string) = {Set, Hold, Ask, Tell, Print, File};
  Begin();
  const int64_t blocks = tds_malloc_count(nullptr).blocks;
  for (std::string_view rest = TextOf(data, size); rest.size() >= 3;) {
    const auto kind = static_cast<uint8_t>(rest[0]);
    const unsigned about = static_cast<uint8_t>(rest[1]) * 256U + static_cast<uint8_t>(rest[2]);
    rest.remove_prefix(3);
    At(steps, kind)(about, std::string(TakePiece(&rest, '\xFE')));
  }
  Check(tds_malloc_count(nullptr).blocks == blocks, "a block of the counted heap is not freed");
  return 0;
}
