// The two ways to the LTE modem, an outside tool each: at-mngr for commands that a final line
// answers (the query route), nanocom for those that a PDU follows (the interactive route). What is
// said on them is in modem_at.h and sms_send.h.
//
// All on the thread of "sysmgr:capabinfo". Answers land in scratch files below /var; the tty is
// opened for its lock alone, never read.
#pragma once

#include <cstddef>

/* The AT tty of the attached modem into `path`; left alone when there is none that is known. */
void ModemDevicePath(char (&path)[128]);

/* ---- query route ---- */

enum { MODEM_LINE_LIMIT = 1003 }; /* bytes that a line whose answer is captured may not reach */

/* Asks with one AT text, written as the shell has to read it (see modem_at.cpp). With a buffer: the
   bytes of the answer, at most `size` and not terminated, or -1. Without one (NULL, or size 0 or
   less), which nothing here asks for: 0, or -1 (logged), it was not run. */
int AtMngrCommand(const char *command, char *reply, int size);

/* Runs a shell line and captures what it prints: bytes read, at most `size` and not terminated, 0
   without a buffer; -1 (on standard output) when the line is NULL, is too long, or nothing was
   captured. */
int RunShellCapture(const char *line, char *buffer, int size);

/* ---- interactive route ---- */

/* Sends "COMMAND\r|PDU" while no other process does; waits for ever for a lock that nobody gives
   back. 0, or -1 for NULL. Whether the modem took it is in the answer. */
int SHORTMSG_DoCommand(const char *text, int argument);

/* The same with the tty locked and its queues empty. 0, or -1: there is no tty. */
int SHORTMSG_DoLockedCommand(const char *text);

/* The answer to the last one: its bytes, not terminated; -1 when there is none within 2.5 s. */
int SHORTMSG_GetCommandResult(char *buffer, size_t size);

/* A file that may come within 2.5 s: bytes read, at most size - 1 and not terminated, or -1. */
int SHORTMSG_read_file_value(const char *path, char *buffer, size_t size);
