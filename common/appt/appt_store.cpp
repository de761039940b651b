// The store's texts as replies; see appt_store.h.
#include "appt_store.h"

#include <cstring>

#include "ams_config_api.h"
#include "ams_config_path.h"

namespace {

/* Hands a heap copy of `text` back as the reply of `size` bytes. The store's change stands even
   when there is no memory for the reply: taking it back is the caller's. */
void ReplyCopy(MsgArg *arg, const char *text, const char *tag) {
  arg->rBuf = __tds_strdup(text, tag);
  if (arg->rBuf == nullptr)
    AMS_PRINT(4, "no mem in ams");
  else
    arg->rLen = static_cast<uint32_t>(strlen(text)) + 1;
}

}  // namespace

int AMS_Appt_Addobj(MsgArg *arg) {
  char url[AMS_PATH_SIZE] = "";
  if (arg->url == nullptr) return -1;
  int result = ams_add_obj(gptXmlTrees->root, arg->url, url);
  if (result == 0) ReplyCopy(arg, url, "AMS_Appt_Addobj");
  return result;
}

int AMS_Appt_Delobj(MsgArg *arg) {
  return arg->url == nullptr ? -1 : ams_del_obj(gptXmlTrees->root, arg->url);
}

int AMS_Appt_Getattr(MsgArg *arg) {
  constexpr size_t kSize = 16;
  char *value = static_cast<char *>(__tds_malloc(kSize, "AMS_Appt_Getattr"));
  if (value == nullptr) {
    AMS_PRINT(4, "no mem in ams");
    return -1;
  }
  int result = ams_get_attr(gptXmlTrees->root, arg->url, value, kSize);
  if (result != 0) {
    __tds_free(value);
    return result;
  }
  arg->rBuf = value;
  arg->rLen = static_cast<uint32_t>(strlen(value)) + 1;
  return 0;
}

int AMS_Appt_Getidxes(MsgArg *arg) {
  int result;
  char *list = cfgReadIndexes(arg->url, "AMS_Appt_Getidxes", &result);
  if (list == nullptr) AMS_PRINT(4, "no mem in ams");
  if (list == nullptr || result != 0) {
    __tds_free(list);
    return result;
  }
  /* "0" for an empty list, on purpose unlike the agent's own index listing, which answers "". */
  if (list[0] == '\0') strcpy(list, "0");
  arg->rBuf = list;
  arg->rLen = static_cast<uint32_t>(strlen(list)) + 1;
  return 0;
}

int AMS_Appt_Setattr(MsgArg *arg) {
  AMS_PRINT(1, "url:%s value:%s", cfgText(arg->url), cfgText(arg->value));
  return ams_set_attr(gptXmlTrees->root, arg->url, arg->value);
}

int AMS_Appt_Savetree(MsgArg *arg) {
  AMS_PRINT(1, "dbagt:url:%s value:%s\n", cfgText(arg->url), cfgText(arg->value));
  if (arg->value == nullptr) return -1;
  if (strstr(arg->value, ".debug") != nullptr) return ams_save_xml(gptXmlTrees->root, arg->value);
  return ams_align_xml(gptXmlTrees->root, arg->value);
}

int AMS_Appt_Setleaf(MsgArg *arg) {
  AMS_PRINT(1, "dbagt:url:%s value:%s\n", cfgText(arg->url), cfgText(arg->value));
  return ams_mxml_fset_leaf(arg->url, arg->value);
}
