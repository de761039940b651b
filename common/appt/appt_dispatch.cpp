// From a request to the op functions: finds the addressed node, decides by its "type" what to do,
// calls what its "op" names, reads and writes values.
#include "appt_dispatch.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "ams_config_api.h"
#include "ams_config_path.h"
#include "ams_config_shell.h"
#include "appt_store.h"

namespace {

constexpr char kChangeList[] = "InternetGatewayDevice.ALL_CHANGED_DATA";

AmsTree *Root() { return gptXmlTrees->root; }

uint32_t CmdType(const MsgArg *arg) { return appt_GetWord(arg->raw + APPT_AT_COMMAND); }

/* A text of the store becomes the request's reply. */
int TakeReply(MsgArg *arg, int result, char *text) {
  if (result != 0 || text == nullptr) return result;
  arg->rBuf = text;
  arg->rLen = static_cast<uint32_t>(strlen(text)) + 1;
  return 0;
}

int ReadValue(MsgArg *arg) {
  char *text = nullptr;
  int result = ams_get_node_value(Root(), arg->url, &text);
  return TakeReply(arg, result, text);
}

int ReadWithAttr(MsgArg *arg) {
  if (arg->url == nullptr) return -1;
  int change_list = strstr(arg->url, kChangeList) != nullptr;
  if (change_list) AMS_PRINT(1, "chang1:url:%s\n", arg->url);
  char *text = nullptr;
  int result = ams_read_withAttr(Root(), arg->url, change_list, &text);
  return TakeReply(arg, result, text);
}

bool TypeIs(const char *url, const char *wanted, char (&type)[16]) {
  return ams_get_node_attr(Root(), url, "type", type) == 0 && strcmp(type, wanted) == 0;
}

/* Reads the node's own "op" into fucName; "" when it has none. 0, or -1 (logged): no such node. */
int ReadOp(MsgArg *arg) {
  if (ams_get_node_attr(Root(), arg->url, "op", arg->fucName) == 0) return 0;
  arg->fucName[0] = '\0';
  if (ams_check_node(Root(), arg->url) == 0) return 0;
  AMS_PRINT(4, "Url %s get op failed.", arg->url);
  return -1;
}

/* The op of the array that an instance belongs to: instances share it. */
int ReadArrayOp(MsgArg *arg) {
  char type[16] = "", father[AMS_PATH_SIZE];
  const char *dot = strrchr(arg->url, '.');
  snprintf(father, sizeof father, "%.*s", dot == nullptr ? 0 : static_cast<int>(dot - arg->url),
           arg->url);
  if (!TypeIs(father, "array", type)) {
    AMS_PRINT(4, "Father URL:%s typeAttr:%s is not an array", father, type);
    return -1;
  }
  if (ams_get_node_attr(Root(), father, "op", arg->fucName) != 0) arg->fucName[0] = '\0';
  return 0;
}

int FindOp(MsgArg *arg) {
  if (ReadOp(arg) != 0) return -1;
  return arg->fucName[0] != '\0' ? 0 : ReadArrayOp(arg);
}

const OpFuncEntry *FindFunc(const char *name) {
  for (const OpFuncEntry *const *table = kFuncTables; *table != nullptr; ++table)
    for (const OpFuncEntry *row = *table; row->name != nullptr; ++row)
      if (strcmp(row->name, name) == 0) return row;
  return nullptr;
}

/* What is written can be undone: a leaf that cannot be noted is not written. */
int WriteLeaf(const MsgArg *arg, AmsUndo **undo) {
  AMS_PRINT(1, "Appt_Write url:%s value:%s\n", arg->url, cfgText(arg->value));
  if (ams_undo_note(Root(), undo, arg->url) != 0) return -1;
  if (ams_set_node_value(Root(), arg->url, arg->value) == 0) return 0;
  return ams_sset_node_value(Root(), arg->url, arg->value);
}

/* Runs `each`, a command for one leaf, of every leaf; a failed one does not stop the others.
   Returns the bytes of the replies with a separator each. */
template <typename Each>
size_t DoLeaves(const MsgArg *arg, LeafNode *list, Each each) {
  size_t total = 0, object = strnlen(arg->url, AMS_PATH_SIZE - 1);
  char url[AMS_PATH_SIZE + sizeof list->leafName];
  memcpy(url, arg->url, object); /* each leaf of each request pays: formatting takes longer */
  url[object++] = '.';
  for (LeafNode *leaf = list; leaf != nullptr; leaf = leaf->next) {
    memcpy(url + object, leaf->leafName, sizeof leaf->leafName);
    MsgArg child = {};
    child.raw = arg->raw;
    child.recvLen = arg->recvLen;
    child.url = url;
    child.value = leaf->leafValue;
    /* a piece without a name would be the object itself */
    if (leaf->leafName[0] == '\0' || each(&child) != 0)
      AMS_PRINT(4, "do leaf: url %s error occur", url);
    if (child.rBuf == nullptr) continue;
    total += strlen(child.rBuf) + 1;
    leaf->rBuf = child.rBuf;
  }
  return total;
}

/* The replies in order, each followed by the separator. */
int JoinReplies(MsgArg *arg, const LeafNode *list, size_t total) {
  if (total == 0) return 0;
  arg->rBuf = static_cast<char *>(__tds_malloc(total + 1, "appt_Do_Obj_Data"));
  if (arg->rBuf == nullptr) {
    AMS_PRINT(5, "tds_malloc failed size is %d.", static_cast<int>(total + 1));
    return -1;
  }
  char *end = arg->rBuf;
  for (const LeafNode *leaf = list; leaf != nullptr; leaf = leaf->next) {
    if (leaf->rBuf == nullptr) continue;
    end = stpcpy(end, leaf->rBuf);
    *end++ = AMS_SEPARATOR;
  }
  *end = '\0';
  arg->rLen = static_cast<uint32_t>(total) + 1;
  return 0;
}

/* ---- an object, with a list of its leaves ---- */

int CallOp(MsgArg *arg) {
  int result = appt_Do_OpFunc(arg);
  if (result == -1) AMS_PRINT(4, "opFunc: %s execute error", arg->fucName);
  return result;
}

void TraceLeafList(const LeafNode *list) {
  printf("\t####LeafList start####\n");
  for (const LeafNode *leaf = list; leaf != nullptr; leaf = leaf->next) {
    printf("\t#leafName is %s.\n", leaf->leafName);
    if (leaf->leafValue != nullptr) printf("\t#leafValue is %s.\n", leaf->leafValue);
  }
  printf("\t####LeafList  end####\n");
}

/* The leaves become visible together; the op function then sees all of them, and when it refuses
   them they are what they were. */
int SetLeaves(MsgArg *arg, LeafNode *list) {
  AmsUndo *undo = nullptr;
  if (ams_write_begin() != 0) return -1;
  (void)DoLeaves(arg, list, [&](MsgArg *leaf) { return WriteLeaf(leaf, &undo); }); /* no replies */
  bool written = ams_write_end() == 0;
  /* the op function runs also when no leaf could be written: each was logged */
  int result = written ? CallOp(arg) : -1;
  if (ams_undo_end(undo, written && result == -1) != 0)
    AMS_PRINT(4, "a refused set was not undone: set the leaves of %s once more", arg->url);
  return result == -1 ? -1 : 0;
}

/* What a read does with one node, when its op function was called. */
using Read = int (*)(MsgArg *arg);

int ReadNothing(MsgArg *) { return 0; }

template <Read read>
int ReadLeaves(MsgArg *arg, LeafNode *list) {
  if (CallOp(arg) == -1) return -1;
  return JoinReplies(arg, list, DoLeaves(arg, list, read));
}

int RefuseLeaves(MsgArg *arg, LeafNode *list) {
  (void)DoLeaves(arg, list, [](MsgArg *) { return -1; }); /* each is logged; the request is done */
  return 0;
}

/* ---- an object and all below it ---- */

int WalkSubtree(MsgArg *arg);

int WalkChild(const MsgArg *arg, const char *url) {
  char type[16] = "";
  MsgArg child = {};
  child.raw = arg->raw;
  child.recvLen = arg->recvLen;
  child.url = url;
  if (!TypeIs(url, "object", type) && strcmp(type, "array") != 0) return 0;
  return WalkSubtree(&child);
}

/* Calls the op functions of the node and of every object and array below it, parents first. Leaves
   are read from the store afterwards. A failing op function does not end the walk. */
int WalkSubtree(MsgArg *arg) {
  char child[AMS_PATH_SIZE];
  if (ReadOp(arg) != 0) return -1;
  if (arg->fucName[0] != '\0' && appt_Do_OpFunc(arg) == -1)
    AMS_PRINT(4, " ERROR accur at appt_Do_OpFunc when op:%s", arg->fucName);
  int more = ams_get_first_child(Root(), arg->url, child);
  while (more == 0) {
    (void)WalkChild(arg, child); /* logged; one that was deleted meanwhile stops no other */
    char next[AMS_PATH_SIZE];
    more = ams_get_next_child(Root(), child, next);
    memcpy(child, next, sizeof(child));
  }
  return 0;
}

template <Read read>
int ReadSubtree(MsgArg *arg) {
  if (WalkSubtree(arg) == 0) return read(arg);
  AMS_PRINT(4, "ERROR accur at appt_Do_OpFunc when appt_Do_Obj_NoData");
  return -1;
}

int DeleteInstance(MsgArg *arg) {
  if (AMS_Appt_Delobj(arg) == -1) {
    AMS_PRINT(4, "AMS_Appt_Delobj return ERROR.");
    return -1;
  }
  if (ReadArrayOp(arg) != 0) AMS_PRINT(4, "appt_GetArrayOPFunc return ERROR.");
  /* The result is that of the deletion, which stands whatever the op function does. */
  (void)appt_Do_OpFunc(arg);
  return 0;
}

int RefuseObject(MsgArg *arg) {
  AMS_PRINT(4, "Unrecgnised cmdType %d",
            static_cast<int>(CmdType(arg))); /* agents match this spelling */
  return -1;
}

/* ---- an array ---- */

int ListIndexes(MsgArg *arg) {
  int result;
  arg->rBuf = cfgReadIndexes(arg->url, "appt_Do_Array", &result);
  if (arg->rBuf == nullptr) {
    AMS_PRINT(5, "tds_malloc failed size is %d.", 1024); /* or more */
    return -1;
  }
  /* An empty list answers two bytes with an empty text: agents tell "empty" from "no reply" by it.
   */
  arg->rLen = arg->rBuf[0] == '\0' ? 2 : static_cast<uint32_t>(strlen(arg->rBuf)) + 1;
  return result;
}

/* The array's op function. -1 (logged) when it fails or the array names none. */
int CallArrayOp(MsgArg *arg) {
  int result = appt_Do_OpFunc(arg);
  if (result == -1) AMS_PRINT(4, "opFunc %s execute error", arg->fucName);
  return result;
}

template <Read read>
int ReadArray(MsgArg *arg) {
  return CallArrayOp(arg) == -1 ? -1 : read(arg);
}

/* The row in the store and its path in the reply, or neither: whoever does not know the path can do
   nothing with the row. */
int AddRow(MsgArg *arg) {
  bool begun = ams_write_begin() == 0;
  bool added = begun && AMS_Appt_Addobj(arg) != -1 && arg->rBuf != nullptr;
  if (begun && (added ? ams_write_end() : ams_write_cancel()) == 0 && added) return 0;
  __tds_free(std::exchange(arg->rBuf, nullptr));
  arg->rLen = 0;
  AMS_PRINT(4, "AMS_Appt_Addobj execute error");
  return -1;
}

int AddInstance(MsgArg *arg) {
  if (AddRow(arg) != 0) return -1;
  int result = arg->fucName[0] == '\0' ? 0 : CallArrayOp(arg);
  /* refused: logged by the store when it stays; the path is told all the same */
  if (result == -1) (void)ams_del_obj(Root(), arg->rBuf);
  return result;
}

int RefuseArray(MsgArg *arg) {
  AMS_PRINT(4, "appt_Do_Array can not find cmdType, cmdType is %d", static_cast<int>(CmdType(arg)));
  return -1;
}

/* ---- what each command is ---- */

constexpr int32_t kNoOp = -1;
constexpr uint32_t kAnyOther = 0;

struct CommandRow {
  uint32_t command;
  int32_t op; /* that op functions are given; kNoOp: the command's own number */
  /* what it does with an object and a list of its leaves, with an object, with an array */
  int (*leaves)(MsgArg *arg, LeafNode *list);
  int (*object)(MsgArg *arg);
  int (*array)(MsgArg *arg);
};

const CommandRow kCommands[] = {
    {APPT_CMD_GET, TMF_GET, ReadLeaves<ReadValue>, ReadSubtree<ReadValue>, ReadArray<ReadValue>},
    {APPT_CMD_SET, TMF_SET, SetLeaves, RefuseObject, RefuseArray},
    {APPT_CMD_ADD, TMF_ADD, RefuseLeaves, RefuseObject, AddInstance},
    {APPT_CMD_DEL, TMF_DEL, RefuseLeaves, DeleteInstance, RefuseArray},
    {APPT_CMD_LIST, kNoOp, RefuseLeaves, RefuseObject, ListIndexes},
    {APPT_CMD_ATTR, TMF_GET, ReadLeaves<ReadWithAttr>, ReadSubtree<ReadWithAttr>,
     ReadArray<ReadWithAttr>},
    {APPT_CMD_REFRESH, TMF_GET, ReadLeaves<ReadNothing>, ReadSubtree<ReadNothing>,
     ReadArray<ReadNothing>},
    {kAnyOther, kNoOp, RefuseLeaves, RefuseObject, RefuseArray},
};

const CommandRow &RowOf(const MsgArg *arg) {
  const CommandRow *row = kCommands;
  while (row->command != CmdType(arg) && row->command != kAnyOther) ++row;
  return *row;
}

}  // namespace

bool appt_HasCommand(uint32_t command) {
  for (const CommandRow &row : kCommands)
    if (row.command == command) return command != kAnyOther;
  return false;
}

int appt_CallHandler(OpFunc handler, OpFuncArg *op) {
  try {
    return handler(op);
  } catch (const std::bad_alloc &) {
    AMS_PRINT(5, "no memory for %s of \"%s\": ask again when less is running", op->name, op->path);
    return -1;
  }
}

int appt_Do_OpFunc(MsgArg *arg) {
  if (arg->fucName[0] == '\0') {
    AMS_PRINT(2, "The fucName is NULL at appt_Do_OpFunc, url %s", arg->url);
    return -1;
  }
  const OpFuncEntry *row = FindFunc(arg->fucName);
  if (row == nullptr) {
    AMS_PRINT(4, "op fuc name is %s can not find FUNC", arg->fucName);
    return -1;
  }
  AMS_PRINT(1, "*pFunc->name is %s", row->name);
  /* A row without a handler gives 1, the look-up's own success: agents rely on it, keep it. */
  if (row->handler == nullptr) return 1;
  OpFuncArg op = {};
  op.name = arg->fucName;
  op.op = RowOf(arg).op;
  if (op.op == kNoOp) op.op = static_cast<int32_t>(CmdType(arg));
  const char *path = op.op == TMF_ADD && arg->rBuf != nullptr ? arg->rBuf : arg->url;
  memcpy(op.path, path, strnlen(path, sizeof op.path - 1));
  if (arg->value != nullptr) {
    op.value = __tds_strdup(arg->value, "appt_Do_OpFunc");
    if (op.value == nullptr) {
      AMS_PRINT(5, "tds_malloc failed size is %d.", static_cast<int>(strlen(arg->value) + 1));
      return -1;
    }
  }
  (void)cfgCommandFailed(); /* what failed before is not this one's */
  int result = appt_CallHandler(row->handler, &op);
  __tds_free(op.value);
  return cfgCommandFailed() ? -1 : result;
}

int appt_Do_Obj_Data(MsgArg *arg) {
  LeafNode *list = nullptr;
  if (appt_ParseLeafList(arg->value, &list) != 0) return -1;
  if (list == nullptr) return appt_Do_Obj_NoData(arg); /* no leaf is in it */
  if (appt_Trace()) TraceLeafList(list);
  int result = FindOp(arg) == 0 ? RowOf(arg).leaves(arg, list) : -1;
  appt_FreeLeafList(list);
  return result;
}

int appt_Do_Obj_NoData(MsgArg *arg) { return RowOf(arg).object(arg); }

int appt_Do_Array(MsgArg *arg) {
  if (arg->raw == nullptr) {
    AMS_PRINT(4, "The input has NULL para at appt_Do_Array.");
    return -1;
  }
  return ReadOp(arg) == 0 ? RowOf(arg).array(arg) : -1;
}

int appt_RunRequest(MsgArg *arg) {
  char type[16] = "";
  if (ams_get_node_attr(Root(), arg->url, "type", type) != 0) {
    if (ams_check_node(Root(), arg->url) != 0)
      AMS_PRINT(4, "Can not find node by URL %s", arg->url);
    else
      AMS_PRINT(4, "Can not find attr value by Name \"type\". at URL %s", arg->url);
  }
  if (strcmp(type, "array") == 0) return appt_Do_Array(arg);
  if (strcmp(type, "object") != 0) {
    AMS_PRINT(4, "URL: %s is not an Obj or array, type is %s.\n", arg->url, type);
    (void)SendMsg(EV_APPT_MSG_NO_OBJECT, arg->raw, 4, kApptAckPeer); /* the ack follows anyway */
    return -1;
  }
  return arg->value == nullptr ? appt_Do_Obj_NoData(arg) : appt_Do_Obj_Data(arg);
}
