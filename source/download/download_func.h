// Downloads that the remote management server ordered: the op function, the order's own thread, and
// what is decided about an order without acting on it.
#pragma once

#include "ams_common_api.h"

int FuncKVO_TR69Download(OpFuncArg *arg);

/* Carries out the order that the data model holds when it starts. A thread of its own an order;
   nothing is shared between two. Takes a sem_t, which it posts when it has read the order and then
   leaves alone, or NULL. Returns NULL. */
void *tr069_download_image_thread(void *order_read);

/* A state word of the version manager, or the result of an upgrade. */
using DownloadState = char[128];

/* Has the version manager check and flash the image `name` below /tmp. 0, and "success" in
   `*result`; else -1 (logged) with "upg_failed", "fwchk_failed" or another word of failure there.
   -1 at once when either is NULL. Waits 20 s and longer; any thread. */
int upgradeVer(const char *name, DownloadState *result);

/* ---- decided without a store, a shell or a message; any thread ---- */

using DownloadLine = char[2048]; /* a command line */

enum {
  DOWNLOAD_URL_SIZE = 1024, /* the URL with its NUL */
  DOWNLOAD_NAME_SIZE = 128, /* the image's name with its NUL, as the version manager takes it */
};

/* An order: no pointer is NULL, and the texts belong to whoever read it. */
struct DownloadOrder {
  const char *command_key; /* "": none */
  const char *file_type, *url, *username, *password;
  const char *target; /* name of the file below /tmp */
  const char *delay;  /* DelaySeconds as it was ordered */
};

/* Why the order is not carried out, and what to do: its target is no plain name below /tmp, or a
   text of it would have to be cut. NULL: nothing is wrong. */
const char *DownloadRefusal(const DownloadOrder &order);

/* Command lines: the fetch, the record for the next start of the management client, the inform of a
   failure. 0; -1 when the line does not fit, and nothing of `line` may be used then. */
int DownloadFetchCommand(const DownloadOrder &order, DownloadLine &line);
int DownloadStrapCommand(const char *command_key, DownloadLine &line);
int DownloadInformCommand(const char *command_key, DownloadLine &line);

/* FaultCode for the result of an upgrade ("" when there was none). */
const char *DownloadFaultCode(const char *result);

/* Seconds to wait; 0 for what is no number or below 0. */
unsigned DownloadDelay(const char *text);

/* The number in the first 6 characters of a column of free(1), in kB. */
int DownloadFreeMemory(const char *text);
