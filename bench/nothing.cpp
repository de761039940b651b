// A shell for measurements: whatever it is to do, it notes that it was asked, and ends at once.
#include <fcntl.h>
#include <unistd.h>

int main() {
  const int fd = open("/tmp/commands", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  return fd >= 0 && write(fd, ".", 1) == 1 ? 0 : 1;
}
