// at-mngr and nanocom, the board's tools that talk to the modem: one program under two names.
//
// at-mngr [-t SECONDS] TEXT...: sends an AT command to the modem and prints its answer.
// nanocom TTY 1 SECONDS: sends "COMMAND|PDU" from /var/atcmd, the answer goes to /var/atresult_1.
// Ends with 0 for OK, 1 when the modem refused, 2 for wrong usage, 3 without an answer in time.
//
// Who uses the tty has it locked (flock): at-mngr locks it, nanocom is run by whoever has done so.
// Linked static and without sanitizers, like all that stands in the way of each command.
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/time.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "at_answer.h"
#include "exit_status.h"
#include "modem_tty.h"
#include "new_file.h"
#include "parse.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kCommandFile[] = "/var/atcmd", kResultFile[] = "/var/atresult_1";
constexpr int kQueryLimit = 10, kSendLimit = 30; /* seconds, unless the caller says */
constexpr size_t kAnswerMax = 1 << 20;
constexpr int kQuietMs = 100; /* see Exchange */

/* A tty, and until when everything has to be done. */
struct Line {
  const char *tool, *path;
  int file = -1;
  Clock::time_point end;
};

int Complain(const Line &line, const char *what) {
  fprintf(stderr, "%s: %s %s: see modemctl state\n", line.tool, line.path, what);
  return EXIT_NO_ANSWER;
}

int MillisecondsLeft(const Line &line) {
  auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(line.end - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

bool Open(Line *line) {
  struct termios settings;
  line->file = open(line->path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (line->file < 0 || tcgetattr(line->file, &settings) != 0) return false;
  cfmakeraw(&settings);
  return tcsetattr(line->file, TCSANOW, &settings) == 0;
}

/* Signals from a timer end the wait; it goes on ticking, so that none can come too early. */
bool Lock(const Line &line) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, nullptr);
  const int left = MillisecondsLeft(line) + 1;
  const struct itimerval ticks = {{0, 100000}, {left / 1000, left % 1000 * 1000}}, none = {};
  setitimer(ITIMER_REAL, &ticks, nullptr);
  bool locked = flock(line.file, LOCK_EX) == 0;
  setitimer(ITIMER_REAL, &none, nullptr);
  return locked;
}

/* Waits for more; false when there is none in time, or no tty any more. */
bool ReadMore(const Line &line, int limit_ms, std::string *text) {
  char bytes[4096];
  struct pollfd end = {line.file, POLLIN, 0};
  if (poll(&end, 1, limit_ms) <= 0) return false;
  ssize_t length = read(line.file, bytes, sizeof bytes);
  if (length <= 0 || text->size() > kAnswerMax) return false;
  text->append(bytes, static_cast<size_t>(length));
  return true;
}

bool Write(const Line &line, const std::string &text) {
  for (size_t done = 0; done < text.size();) {
    struct pollfd end = {line.file, POLLOUT, 0};
    if (poll(&end, 1, MillisecondsLeft(line)) <= 0) return false;
    ssize_t length = write(line.file, text.data() + done, text.size() - done);
    if (length <= 0) return false;
    done += static_cast<size_t>(length);
  }
  return true;
}

/* Sends and takes the answer, or what there is of it. An answer before the echo may be a late one
   to somebody who gave up: it is only taken when nothing follows, from a modem without echo. */
int Exchange(const Line &line, const std::string &sent, std::string *answer) {
  std::string text;
  answer->clear();
  if (!Write(line, sent)) return Complain(line, "does not take the command");
  for (;;) {
    bool echoed;
    int status = EXIT_DONE;
    size_t start = AnswerStart(text, sent, &echoed), end = AnswerEnd(text, start, &status);
    int limit = MillisecondsLeft(line);
    if (end != text.npos && !echoed && limit > kQuietMs) limit = kQuietMs;
    *answer = text.substr(start, end == text.npos ? end : end - start);
    if (end != text.npos && echoed) return status;
    if (ReadMore(line, limit, &text)) continue;
    if (end != text.npos) return status;
    (void)Write(line, {kEscape}); /* so that nobody finds it waiting for a PDU, if it is there */
    return Complain(line, MillisecondsLeft(line) > 0 ? "went away" : "does not answer in time");
  }
}

int NoTimeLimit(const char *tool, const char *given, const char *wanted) {
  fprintf(stderr, "%s: \"%s\" is no time limit: give %s\n", tool, given, wanted);
  return EXIT_USAGE;
}

/* A command that wants a PDU, where none is. */
int WithoutPdu(const Line &line) {
  (void)Write(line, {kEscape}); /* it was there just now */
  fprintf(stderr, "%s: the command wants a PDU: nanocom sends both from %s\n", line.tool,
          kCommandFile);
  return EXIT_USAGE;
}

/* ---- at-mngr ---- */

int AtMngr(int argc, char **argv) {
  Line line = {"at-mngr", kModemTty, -1, {}};
  double limit = kQueryLimit;
  int at = 1;
  if (argc > 2 && strcmp(argv[1], "-t") == 0) {
    if (!ParseFraction(argv[2], 0.001, 3600, &limit))
      return NoTimeLimit(line.tool, argv[2], "seconds from 0.001 to 3600");
    at = 3;
  }
  std::string text, answer;
  for (; at < argc; ++at) text += (text.empty() ? "" : " ") + std::string(argv[at]);
  if (text.empty()) {
    fprintf(stderr, "usage: at-mngr [-t SECONDS] TEXT...\n");
    return EXIT_USAGE;
  }
  if (text.back() != '\r') text += '\r';
  line.end = Clock::now() + std::chrono::milliseconds(static_cast<long>(limit * 1000));
  if (!Open(&line)) return Complain(line, "cannot be opened");
  if (!Lock(line)) return Complain(line, "is in use all the time");
  (void)tcflush(line.file, TCIFLUSH); /* what nobody waited for */
  int status = Exchange(line, text, &answer);
  if (status == EXIT_DONE && EndsInPrompt(answer)) return WithoutPdu(line);
  fwrite(answer.data(), 1, answer.size(), stdout);
  return fflush(stdout) == 0 ? status : EXIT_NO_ANSWER;
}

/* ---- nanocom ---- */

bool ReadCommand(std::string *command, std::string *pdu) {
  char text[4096];
  int file = open(kCommandFile, O_RDONLY | O_CLOEXEC);
  ssize_t length = file < 0 ? -1 : read(file, text, sizeof text);
  if (file >= 0) close(file);
  return length > 0 && SplitCommand(std::string(text, static_cast<size_t>(length)), command, pdu);
}

int WriteResult(const std::string &answer) {
  if (WriteNewFile(kResultFile, answer) == 0) return 0;
  fprintf(stderr, "nanocom: cannot write %s: %s\n", kResultFile, strerror(errno));
  return -1;
}

int Nanocom(int argc, char **argv) {
  std::string command, pdu, answer;
  if (argc != 4) {
    fprintf(stderr, "usage: nanocom TTY 1 SECONDS (0: %d), run with the tty locked\n", kSendLimit);
    return EXIT_USAGE;
  }
  int64_t seconds;
  Line line = {"nanocom", argv[1], -1, {}};
  if (!ParseDecimal(argv[3], INT32_MIN, INT32_MAX, &seconds))
    return NoTimeLimit(line.tool, argv[3], "whole seconds");
  line.end = Clock::now() + std::chrono::seconds(seconds > 0 ? seconds : kSendLimit);
  if (!ReadCommand(&command, &pdu)) {
    fprintf(stderr, "nanocom: %s has no command: write \"AT+CMGS=LENGTH|PDU\" there\n",
            kCommandFile);
    return EXIT_USAGE;
  }
  if (!Open(&line)) return Complain(line, "cannot be opened");
  (void)tcflush(line.file, TCIFLUSH); /* what nobody waited for */
  int status = Exchange(line, command, &answer);
  if (status == EXIT_DONE && EndsInPrompt(answer)) {
    if (pdu.empty()) return WithoutPdu(line);
    status = Exchange(line, pdu, &answer);
  }
  if (status == EXIT_NO_ANSWER) return status;
  return WriteResult(answer) == 0 ? status : EXIT_NO_ANSWER;
}

}  // namespace

int main(int argc, char **argv) {
  return strcmp(program_invocation_short_name, "nanocom") == 0 ? Nanocom(argc, argv)
                                                               : AtMngr(argc, argv);
}
