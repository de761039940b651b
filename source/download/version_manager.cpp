// The client of the version manager, another process: it checks an image and flashes it, and is
// asked again and again how far it is.
#include "version_manager.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "ams_common_api.h"

namespace {

constexpr char kVersionManager[] = "tdsmgr:vermgt";
constexpr uint32_t kVersionDownload = 0xfff04; /* 320 bytes, the image's name at 192 */
constexpr uint32_t kVersionState = 0xfff05;    /* a state word with its NUL */
constexpr size_t kRequestSize = 320, kRequestName = 192;
constexpr int kPolls = 201;
constexpr uint32_t kPollPeriod = 100; /* ms */

/* Sends and takes the answer as a state word, cut and terminated whatever came. 0, or -1 when the
   answer is empty or missing (logged by the runtime); `state` is "" then. */
int AskVersionManager(uint32_t id, const void *data, uint32_t length, VersionWord &state) {
  void *reply = nullptr;
  uint32_t reply_length = 0;
  state[0] = '\0';
  if (SendMsg_syn_lib(id, data, length, kVersionManager, &reply, &reply_length) != 0) return -1;
  if (reply_length == 0) return -1;
  const char *word = static_cast<const char *>(reply);
  size_t size = strnlen(word, std::min<size_t>(reply_length, sizeof state - 1));
  memcpy(state, word, size);
  state[size] = '\0';
  __tds_free(reply);
  return 0;
}

int TellState(const char *word, VersionWord &state) {
  return AskVersionManager(kVersionState, word, static_cast<uint32_t>(strlen(word)) + 1, state);
}

/* Confirms the image that is there. 0, or -1 when the manager does not agree. */
int ConfirmVersion(VersionWord *result) {
  VersionWord reply = "";
  (void)TellState("success", reply); /* no answer is no "success" */
  AMS_PRINT(3, "2: rBuf is %s", reply);
  AMS_PRINT(3, "2: result is %s", reply);
  if (strcmp(reply, "success") != 0) return -1;
  AMS_PRINT(3, "download version succeed.");
  memcpy(*result, reply, sizeof reply);
  return 0;
}

/* Polls from the manager's first answer on, until there is an end. As upgradeVer. */
int AwaitVersion(VersionWord &state, VersionWord *result) {
  for (int polls = 0;; ++polls) {
    if (strcmp(state, "downloading") != 0) {
      AMS_PRINT(3, "[%s] result=%s\n", "upgradeVer", state);
      return -1;
    }
    if (polls == kPolls) break;
    (void)TellState("downloading", state); /* a missing answer ends the next pass */
    if (strcmp(state, "downloaded") == 0) {
      if (ConfirmVersion(result) == 0) return 0;
    } else if (strstr(state, "fail") != nullptr) {
      memcpy(*result, state, sizeof state);
      return -1;
    }
    tds_delay(kPollPeriod);
  }
  (void)TellState("timeout", state); /* a notice: nothing depends on its answer */
  AMS_PRINT(4, "download version timeout.");
  return -1;
}

}  // namespace

int upgradeVer(const char *name, VersionWord *result) {
  if (name == nullptr || result == nullptr) return -1;
  VersionWord state = "";
  char request[kRequestSize] = {};
  snprintf(*result, sizeof *result, "other_failed");
  if (strlen(name) >= VERSION_NAME_SIZE) {
    AMS_PRINT(4, "upgradeVer: the name has %zu bytes and %d fit, order it with a shorter one: %s",
              strlen(name), VERSION_NAME_SIZE - 1, name);
    return -1;
  }
  memcpy(request + kRequestName, name, strlen(name));
  if (AskVersionManager(kVersionDownload, request, sizeof request, state) != 0) {
    AMS_PRINT(4, "version download cmd send msg to system failed.");
    return -1;
  }
  if (strcmp(state, "occupied") == 0) {
    AMS_PRINT(4, "version download cmd is now operating by others, please try later.");
    return -1;
  }
  AMS_PRINT(3, "version %s is upgrading, please wait...", name);
  return AwaitVersion(state, result);
}
