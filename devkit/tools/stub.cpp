// Every board script and tool of the desk's root file system: records how it was called and ends.
// Linked static and without sanitizers, since the daemon starts it for each command line.
//
// /var/devkit/stub/NAME.out, .sleep and .exit (NAME: the last part of the path) make it print a
// text, take some seconds, and end with a status.
#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr char kCalls[] = "/var/log/devkit/calls";
constexpr char kBehaviour[] = "/var/devkit/stub/";

/* `text` as a shell would have to read it to get it back. */
std::string Quoted(const char *text) {
  constexpr char kPlain[] =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_@%+=:,./-";
  if (*text != '\0' && text[strspn(text, kPlain)] == '\0') return text;
  std::string quoted = "'";
  for (; *text != '\0'; ++text) {
    if (*text == '\'')
      quoted += "'\\''";
    else if (*text == '\n')
      quoted += "'$'\\n''"; /* one call stays one line */
    else
      quoted += *text;
  }
  return quoted + "'";
}

/* The path that was executed, absolute even when the shell found the tool on its PATH. */
const char *OwnPath(char **argv) {
  const char *path = reinterpret_cast<const char *>(getauxval(AT_EXECFN));
  return path != nullptr ? path : argv[0];
}

/* One write, so that calls made at the same time do not mix. */
void Record(const std::string &line) {
  int file = open(kCalls, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (file < 0) return; /* no log folder: nobody wants to see it */
  ssize_t written = write(file, line.data(), line.size());
  (void)written; /* a full disk must not change what the script answers */
  close(file);
}

/* Content of the behaviour file of this stub, at most 64 KiB; "" when there is none. */
std::string Behaviour(const std::string &name, const char *what) {
  std::string path = kBehaviour + name + what, text;
  int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return text;
  text.resize(64 * 1024);
  ssize_t length = read(file, text.data(), text.size());
  text.resize(length > 0 ? static_cast<size_t>(length) : 0);
  close(file);
  return text;
}

}  // namespace

int main(int argc, char **argv) {
  const std::string path = OwnPath(argv);
  const std::string name = path.substr(path.rfind('/') + 1);
  std::string line = Quoted(path.c_str());
  for (int i = 1; i < argc; ++i) line += " " + Quoted(argv[i]);
  Record(line + "\n");

  const std::string out = Behaviour(name, ".out");
  ssize_t written = write(STDOUT_FILENO, out.data(), out.size());
  (void)written; /* nobody may be reading */
  sleep(static_cast<unsigned>(atoi(Behaviour(name, ".sleep").c_str())));
  return atoi(Behaviour(name, ".exit").c_str());
}
