// Requests from outside: any bytes through the parser and the dispatch, over the small store of
// tests/data/request_fuzz.xml. The op functions are stand-ins; nothing is sent but what the
// dispatch itself sends, to nobody.
#include "appt_dispatch.h"
#include "appt_request.h"
#include "serve.h"
#include "tds_heap.h"

namespace {

/* Requests that can have grown the tree, since it was loaded; it is loaded anew after so many. */
constexpr uint32_t kAddsMax = 64;
uint32_t adds;

/* Reads all that an op function is given, so that a text that is not terminated is noticed. */
int Count(OpFuncArg *arg) {
  CheckTexts(arg->path);
  Check(arg->path[0] == '\0' || arg->path[strlen(arg->path) - 1] != '.', "a \".\" ends the path");
  Check(arg->value == nullptr || strlen(arg->value) <= 255, "the value is longer than its length");
  Check(strlen(arg->name) < sizeof MsgArg::fucName, "the name is not terminated");
  return 0;
}

int CountAndFail(OpFuncArg *arg) { return Count(arg) - 1; }

const OpFuncEntry kFirst[] = {{"FuncTop", Count}, {"FuncObj", Count}, {nullptr, nullptr}};
const OpFuncEntry kSecond[] = {
    {"FuncList", Count}, {"FuncFails", CountAndFail}, {"FuncNone", nullptr}, {nullptr, nullptr}};

void Load() {
  LoadSmallModel();
  adds = 0;
}

/* The reply is what its length says, ends with a NUL, and there is none without a length. */
void CheckReply(const MsgArg *arg) {
  if (arg->rBuf == nullptr) return Check(arg->rLen == 0, "a reply length without a reply");
  Check(strnlen(arg->rBuf, arg->rLen) < arg->rLen, "the reply does not end within its length");
}

}  // namespace

const OpFuncEntry *const kFuncTables[] = {kFirst, kSecond, nullptr};

int LLVMFuzzerInitialize(int *, char ***) {
  Serve();
  Load();
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (adds >= kAddsMax) Load();
  int64_t blocks = tds_malloc_count(nullptr).blocks;
  MsgArg arg = {};
  if (appt_FillMsgArg(&arg, data, static_cast<uint32_t>(size)) == 0) {
    adds += appt_GetWord(data + 4) == APPT_CMD_ADD;
    (void)appt_RunRequest(&arg); /* any result will do */
    CheckReply(&arg);
  } else {
    Check(arg.url == nullptr, "a refused frame has a URL");
  }
  __tds_free(arg.rBuf);
  Check(tds_malloc_count(nullptr).blocks == blocks, "a block of the counted heap is not freed");
  return 0;
}
