// An order for a download and its texts: what is decided without a store, a shell or a message. Any
// thread.
#pragma once

using DownloadLine = char[2048]; /* a command line */

/* An order: no pointer is NULL, and the texts belong to whoever read it. */
struct DownloadOrder {
  const char *command_key; /* "": none */
  const char *file_type, *url, *username, *password;
  const char *target; /* name of the file below /tmp */
  const char *delay;  /* DelaySeconds as it was ordered */
};

/* Whether `target` names a file of the order's own below /tmp. */
bool DownloadIsPlainName(const char *target);

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
