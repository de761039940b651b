// The two ways to the LTE modem; see modem_route.h.
#include "modem_route.h"

#include <fcntl.h>
#include <sys/file.h>
#include <termios.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ams_common_api.h"
#include "ams_config_shell.h"
#include "file_handle.h"
#include "sms_trace.h"

namespace {

constexpr char kDeviceInfo[] = "/var/tmp/devinfo"; /* "VENDOR PRODUCT", by the hot-plug scripts */
constexpr char kLock[] = "/var/atcmd_lock";
constexpr char kAnswer[] = "/var/atresult_1";
constexpr char kCaptured[] = "/var/atTmpResult";
constexpr char kOwnNanocom[] = "/var/nanocom"; /* goes before the one on the search path */
constexpr size_t kLineRoom = 4096;

/* ---- which modem ---- */

struct UsbModem {
  uint32_t vendor, product;
  const char *tty;
};

/* One row a modem that the gateway knows. */
const UsbModem kModems[] = {
    {0x2c7c, 0x0125, "/dev/ttyUSB3"}, {0x2c7c, 0x0306, "/dev/ttyUSB2"},
    {0x2c7c, 0x030b, "/dev/ttyUSB2"}, {0x05c6, 0x9215, "/dev/ttyUSB3"},
    {0x12d1, 0x1573, "/dev/ttyUSB2"}, {0x12d1, 0x15c1, "/dev/ttyUSB0"},
    {0x05c6, 0xf601, "/dev/ttyUSB3"}, {0x1e0e, 0x9001, "/dev/ttyUSB3"},
    {0x1199, 0x68c0, "/dev/ttyUSB2"}, {0x12d1, 0x1404, "/dev/ttyUSB2"},
    {0x258d, 0x2000, "/dev/ttyACM0"}, {0x2949, 0x8241, "/dev/ttyUSB2"},
    {0x2949, 0x8242, "/dev/ttyUSB2"}, {0x2949, 0x8243, "/dev/ttyUSB2"},
    {0x1c9e, 0x9b05, "/dev/ttyUSB2"}, {0x1c9e, 0x9b3c, "/dev/ttyUSB2"},
    {0x1c9e, 0x9b07, "/dev/ttyUSB2"}, {0x05c6, 0x5012, "/dev/ttyUSB2"},
    {0x05c6, 0x5013, "/dev/ttyUSB2"}, {0x1519, 0x0443, "/dev/ttyACM2"},
    {0x19d2, 0x0532, "/dev/ttyUSB0"}, {0x2cb7, 0x000b, "/dev/ttyACM2"},
    {0x1199, 0x9071, "/dev/ttyUSB2"}, {0x05c6, 0x1601, "/dev/ttyUSB3"},
    {0x2020, 0x2063, "/dev/ttyUSB2"}, {0x2020, 0x2040, "/dev/ttyUSB2"},
    {0x305a, 0x1415, "/dev/ttyUSB1"}, {0x19d2, 0x1476, "/dev/ttyUSB2"},
    {0x305a, 0x1406, "/dev/ttyUSB2"}, {0x305a, 0x1403, "/dev/ttyUSB2"},
    {0x2cb7, 0x0a04, "/dev/ttyUSB0"}, {0x2cb7, 0x0a05, "/dev/ttyUSB0"},
    {0x2cb7, 0x0a06, "/dev/ttyUSB0"}, {0, 0, ""},
};

/* The ids of the attached modem; 0 what is not known. */
void AttachedIds(uint32_t *vendor, uint32_t *product) {
  char line[256] = "", first[256], second[256];
  *vendor = *product = 0;
  const FileHandle file(fopen(kDeviceInfo, "re"));
  if (file == nullptr) return;
  if (fgets(line, sizeof line, file.get()) == nullptr) *line = '\0';
  if (sscanf(line, "%255s %255s", first, second) != 2) return;
  *vendor = static_cast<uint32_t>(strtoul(first, nullptr, 16));
  *product = static_cast<uint32_t>(strtoul(second, nullptr, 16));
}

/* ---- shell lines ---- */

/* Lines of this file are longer than cfgSystemCmd takes. A line that does not fit is not run: half
   a command is worse than none. 0, or -1 (logged): not run. */
__attribute__((format(printf, 1, 2))) int Run(const char *format, ...) {
  char line[kLineRoom];
  va_list args;
  va_start(args, format);
  int length = vsnprintf(line, sizeof line, format, args);
  va_end(args);
  if (length < 0 || static_cast<size_t>(length) >= sizeof line) {
    AMS_PRINT(4, "modem command of %d bytes not run, %zu fit: send less\n", length,
              sizeof line - 1);
    return -1;
  }
  return cfgShell(line);
}

int ReadWhole(const char *path, char *buffer, size_t size) {
  int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return -1;
  ssize_t length = read(file, buffer, size);
  close(file);
  return static_cast<int>(length);
}

/* Without a limit on purpose: whoever has the lock is sending, and a message that overtakes it
   would be lost. A lock that a crashed process left stays until a restart of the gateway. */
void TakeLock() {
  while (access(kLock, F_OK) == 0) {
    puts("shortmsg card is lockd");
    usleep(500);
  }
  (void)Run("echo \"\" > %s", kLock); /* without the file others are not kept out, no more */
}

}  // namespace

void ModemDevicePath(char (&path)[128]) {
  uint32_t vendor, product;
  AttachedIds(&vendor, &product);
  if (vendor == 0 || product == 0) return;
  for (const UsbModem &modem : kModems)
    if (modem.vendor == vendor && modem.product == product) {
      snprintf(path, sizeof path, "%s", modem.tty);
      return;
    }
}

/* ---- query route ---- */

int RunShellCapture(const char *line, char *buffer, int size) {
  if (line == nullptr || strlen(line) >= MODEM_LINE_LIMIT) {
    printf("script name too long or zero:%s\n", line == nullptr ? "NULL" : line);
    return -1;
  }
  (void)Run("%s > %s", line, kCaptured); /* what it printed tells more than its status */
  int file = open(kCaptured, O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    printf("%s\n", line);
    return -1;
  }
  int length = buffer == nullptr ? 0 : -1;
  if (buffer != nullptr && size > 0)
    length = static_cast<int>(read(file, buffer, static_cast<size_t>(size)));
  else if (buffer != nullptr)
    puts("can not read");
  close(file);
  (void)unlink(kCaptured); /* it was just there */
  return length;
}

/* The second line has two blanks on purpose: they tell it from the first in what a shell has run.
 */
int AtMngrCommand(const char *command, char *reply, int size) {
  char line[1024];
  bool wanted = reply != nullptr && size > 0;
  int length =
      snprintf(line, sizeof line, wanted ? "at-mngr %s" : "at-mngr  %s 2>/dev/null", command);
  if (wanted) return RunShellCapture(line, reply, size);
  if (length < static_cast<int>(sizeof line)) return Run("%s", line);
  AMS_PRINT(4, "modem command of %d bytes not run, %zu fit: send less\n", length, sizeof line - 1);
  return -1;
}

/* ---- interactive route ---- */

int SHORTMSG_DoCommand(const char *text, int argument) {
  if (text == nullptr) return -1;
  TakeLock();
  /* Statuses are not looked at: the answer tells whether the modem took the message. */
  (void)Run("echo \"\" > /var/atcmd");
  (void)Run("echo '%s' > /var/atcmd", text);
  (void)Run("cat /var/atcmd");
  if (access(kAnswer, F_OK) == 0) (void)Run("rm  %s", kAnswer);
  char tty[128] = "", line[kLineRoom];
  ModemDevicePath(tty);
  bool own = access(kOwnNanocom, F_OK) == 0;
  snprintf(line, sizeof line, "%s %s %s %d", own ? kOwnNanocom : "nanocom", tty, "1", argument);
  (void)Run("%s", line);
  SMS_TRACE("cmd =%s", line);
  (void)Run("rm -f %s", kLock);
  SMS_TRACE("1 ");
  usleep(50000);
  return 0;
}

int SHORTMSG_DoLockedCommand(const char *text) {
  char tty[128] = "";
  ModemDevicePath(tty);
  int file = open(tty, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (file < 0) {
    AMS_PRINT(4, "modem's tty \"%s\" cannot be opened: %m; is the modem attached?\n", tty);
    SMS_TRACE("open device %s fail", tty);
    return -1;
  }
  /* Not every tty has locks and queues; the command is sent all the same. */
  if (flock(file, LOCK_EX) == 0) (void)tcflush(file, TCIOFLUSH);
  int result = SHORTMSG_DoCommand(text, 0);
  (void)flock(file, LOCK_UN);
  close(file);
  return result;
}

int SHORTMSG_read_file_value(const char *path, char *buffer, size_t size) {
  if (path == nullptr || buffer == nullptr || *path == '\0' || size == 0) {
    SMS_TRACE("%s:%d", __func__, __LINE__);
    return -1;
  }
  for (int test = 1; access(path, F_OK) != 0; ++test) {
    usleep(500000);
    if (test == 5) return -1;
  }
  int length = ReadWhole(path, buffer, size - 1);
  if (length < 0) return -1;
  SMS_TRACE("<%d> svalue = \n[ %.*s ]\n", __LINE__, length, buffer);
  return length;
}

int SHORTMSG_GetCommandResult(char *buffer, size_t size) {
  int length = SHORTMSG_read_file_value(kAnswer, buffer, size);
  SMS_TRACE("nLength=%d", length);
  return length;
}
