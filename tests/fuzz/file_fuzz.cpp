// Small files of the board: any bytes as one of "KEY=value" lines, and as one of lines that are
// dropped by their tag. The first line of the input is the key; a first byte that is odd stands for
// a file so long that its end is not looked at.
#include "ams_config_util.h"
#include "check.h"

namespace {

constexpr char kFile[] = "/tmp/fuzz.conf";
int written; /* lines, of the file that is dropped from */

/* What a key has, in a file where something stands before it. */
void Find(const std::string &key, const std::string &file) {
  char value[64];
  memset(value, 'z', sizeof value); /* what stays of it is not terminated */
  PutFile(kFile, file);
  if (cfgFileKeyGet(kFile, key.c_str(), value) != 0) return;
  CheckTexts(value);
  Check(strpbrk(value, "\r\n") == nullptr, "a value of two lines");
  size_t at = file.find(key);
  Check(at < 8191, "a key out of nothing");
  Check(file.find(value, at + key.size()) != file.npos, "the value is not the file's");
}

/* The first line is found, whatever follows. */
void FindFirst(const std::string &key, const std::string &file) {
  const std::string line = file.substr(0, file.find_first_of("\r\n"));
  char value[64];
  if (key.empty() || line.find('\0') != line.npos || key.size() + line.size() > 8000) return;
  PutFile(kFile, key + line + "\n" + file);
  Check(cfgFileKeyGet(kFile, key.c_str(), value) == 0, "a key is not found");
  const std::string wanted = line.substr(std::min(line.find_first_not_of(" \t"), line.size()));
  Check(wanted.substr(0, sizeof value - 1) == value, "the value is another one");
}

void Drop(const std::string &tag, const std::string &file) {
  if (tag.size() != 3) return;
  written = 0;
  PutFile(kFile, file);
  Check(cfgFileDropLines(kFile, tag.c_str()) == 0, "the file is not read");
  Check(written <= 10, "there are more lines than may be");
}

}  // namespace

/* A line that is kept: "echo TEXT > FILE", and ">>" after the first. */
WRAPPED(int, system, const char *line) {
  const std::string text = line, end = std::string(written++ == 0 ? " > " : " >> ") + kFile;
  Check(text.compare(0, 5, "echo ") == 0 && text.find_first_of("\r\n") == text.npos &&
            text.size() > 5 + end.size() &&
            text.compare(text.size() - end.size(), end.size(), end) == 0,
        "a line is not written as one");
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  std::string_view rest = TextOf(data + 1, size - 1);
  const std::string key = std::string(TakePiece(&rest, '\n')).c_str();
  std::string file(rest);
  Drop(key, file);
  FindFirst(key, file);
  if ((data[0] & 1) != 0) file.insert(0, 8192 - std::min<size_t>(file.size(), 64), '\n');
  Find(key, file);
  return 0;
}
