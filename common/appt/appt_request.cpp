// Frames and leaf lists; see appt_request.h.
#include "appt_request.h"

#include <cstring>

#include "ams_config_path.h"
#include "leaf_list.h"

namespace {

/* One text of a frame: its length byte, the bytes, the NUL. Returns the text and moves `at` behind
   it; NULL when it does not fit or is not terminated where its length says. */
const char *TakeText(const uint8_t *frame, uint32_t size, uint32_t *at, uint8_t *length) {
  if (*at >= size) return nullptr;
  *length = frame[(*at)++];
  if (size - *at < *length + 1U) return nullptr;
  const char *text = reinterpret_cast<const char *>(frame + *at);
  if (strnlen(text, *length + 1U) != *length) return nullptr;
  *at += *length + 1U;
  return text;
}

/* One leaf of a list; NULL when there is no memory for it. */
LeafNode *CopyLeaf(Leaf piece) {
  static constexpr char kTag[] = "appt_ParseLeafList"; /* tags live for ever */
  LeafNode *leaf = static_cast<LeafNode *>(__tds_malloc(sizeof(LeafNode), kTag));
  if (leaf == nullptr) return nullptr;
  *leaf = {};
  if (piece.name.size() >= sizeof leaf->leafName) {
    AMS_PRINT(4, "a leaf's name has at most %zu bytes, not %zu: %.*s", sizeof leaf->leafName - 1,
              piece.name.size(), static_cast<int>(piece.name.size()), piece.name.data());
    if (piece.has_value) piece.name = {};
  }
  piece.name.copy(leaf->leafName, sizeof(leaf->leafName) - 1);
  if (piece.value.empty()) return leaf;
  leaf->leafValue = __tds_strndup(piece.value.data(), piece.value.size(), kTag);
  if (leaf->leafValue != nullptr) return leaf;
  __tds_free(leaf);
  return nullptr;
}

}  // namespace

uint32_t appt_GetWord(const void *bytes) {
  const uint8_t *byte = static_cast<const uint8_t *>(bytes);
  return byte[0] | static_cast<uint32_t>(byte[1]) << 8 | static_cast<uint32_t>(byte[2]) << 16 |
         static_cast<uint32_t>(byte[3]) << 24;
}

void appt_PutWord(void *bytes, uint32_t word) {
  uint8_t *byte = static_cast<uint8_t *>(bytes);
  for (int i = 0; i < 4; ++i) byte[i] = static_cast<uint8_t>(word >> (8 * i));
}

int appt_FillMsgArg(MsgArg *arg, const void *frame, uint32_t len) {
  *arg = {};
  arg->recvLen = len;
  arg->raw = static_cast<const uint8_t *>(frame);
  uint32_t at = APPT_HEAD_SIZE;
  if (len < APPT_HEAD_SIZE) {
    AMS_PRINT(4, "request of %u bytes is shorter than its head, dropped", len);
    return -1;
  }
  const char *url = TakeText(arg->raw, len, &at, &arg->urlLen);
  if (url == nullptr || at >= len) {
    AMS_PRINT(4, "request of %u bytes: the url does not fit or is not terminated", len);
    return -1;
  }
  arg->valueLen = arg->raw[at];
  if (arg->valueLen != 0) {
    arg->value = TakeText(arg->raw, len, &at, &arg->valueLen);
    if (arg->value == nullptr) {
      AMS_PRINT(4, "request of %u bytes: the value does not fit or is not terminated", len);
      return -1;
    }
  }
  arg->url = url;
  /* Some agents write a "." behind it. This is the only place that knows. */
  if (arg->urlLen > 1 && url[arg->urlLen - 1] == '.' && url[arg->urlLen - 2] != '.') {
    memcpy(arg->node, url, arg->urlLen - 1U);
    arg->url = arg->node;
  }
  return 0;
}

int appt_ParseLeafList(const char *value, LeafNode **list) {
  LeafNode **tail = list;
  *list = nullptr;
  std::string_view rest = cfgText(value);
  for (Leaf piece; NextLeaf(&rest, &piece);) {
    LeafNode *leaf = CopyLeaf(piece);
    if (leaf == nullptr) {
      AMS_PRINT(5, "tds_malloc failed size is %d.",
                static_cast<int>(piece.name.size() + piece.has_value + piece.value.size()));
      appt_FreeLeafList(*list);
      *list = nullptr;
      return -1;
    }
    *tail = leaf;
    tail = &leaf->next;
  }
  return 0;
}

void appt_FreeLeafList(LeafNode *list) {
  while (list != nullptr) {
    LeafNode *next = list->next;
    __tds_free(list->leafValue);
    __tds_free(list->rBuf);
    __tds_free(list);
    list = next;
  }
}
