// What a modem says to an AT command, and the command and PDU that a file gives. Any thread.
#pragma once

#include <string>

/* Where the answer to `sent` begins in all that came, behind its echo and blank lines. `*echoed`:
   it has the echo. */
size_t AnswerStart(const std::string &text, const std::string &sent, bool *echoed);

/* The end of the answer that begins at `start`, behind its final line; npos while there is none. A
   prompt is an end, too. `*status`, of an end: EXIT_DONE, or EXIT_REFUSED by the modem. */
size_t AnswerEnd(const std::string &text, size_t start, int *status);

/* Whether the modem waits for a PDU: its last line is a prompt, behind news perhaps. */
bool EndsInPrompt(const std::string &answer);

/* "COMMAND\r|PDU" as a file has it: the command with its end, the PDU with Ctrl-Z or "". False
   when there is no command. */
bool SplitCommand(const std::string &text, std::string *command, std::string *pdu);
