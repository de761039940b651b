// The LTE modem's AT commands, by two outside tools: at-mngr for what one final line answers (the
// query route), nanocom for what a PDU follows (the interactive route). What the commands mean to
// short messages is in sms_func.cpp.
//
// All on the thread of "sysmgr:capabinfo". Answers land in scratch files below /var; the
// tty is opened for its lock alone, never read.
#pragma once

#include <cstddef>
#include <cstdint>

/* Result code of the last action on short messages; an answer with "ERROR" puts the modem's number
   there. */
extern int32_t msgResult;

/* The AT tty of the attached modem into `path`; left alone when there is none that is known. */
void ModemDevicePath(char (&path)[128]);

/* ---- query route ---- */

/* Asks with one AT text, written as the shell has to read it (see at-mngr's lines in
   modem_at.cpp). With a buffer: the bytes of the answer, at most `size` and not terminated, or -1.
   Without one (NULL, or size 0 or less): the shell's status. */
int AtMngrCommand(const char *command, char *reply, int size);

/* Runs a shell line and captures what it prints: bytes read, at most `size` and not terminated;
   -1 (on standard output) when the line is NULL, has 1003 bytes or more, or nothing was captured.
 */
int RunShellCapture(const char *line, char *buffer, int size);

/* Puts the number of an "ERROR" answer into msgResult, if it has one. */
void ModemErrorNumber(const char *answer);

/* Whether a text is digits, with one "+" before them where `plus`; "" is not. What is not must not
   reach a command line or a PDU. */
bool ModemIsNumber(const char *text, bool plus);

/* Commands with their answers. 0, or -1 with msgResult where the modem gave a number. */
int ModemPduMode();
int ModemCharacterSet(const char *name); /* "GSM", "UCS2" */
int ModemSetServiceCentre(const char *number);
int ModemServiceCentre(char *number, size_t size); /* as the modem writes it, with its "+" */
int ModemPhonebookFill(int *used, int *total);
int ModemStorageFill(const char *storage, int *used, int *total); /* selects it: "SM" or "ME" */
int ModemDeleteMessage(int index);
int ModemDeletePhonebookEntry(int index);
int ModemSelectPhonebook(); /* the SIM's */
int ModemPhonebookUcs2();   /* its names as UCS2 hexadecimal digits */
int ModemReadPhonebook(int first, int last, char *answer, size_t size); /* terminated */
int ModemAddPhonebookEntry(const char *number, const char *name); /* name: UCS2 as hex digits */

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
