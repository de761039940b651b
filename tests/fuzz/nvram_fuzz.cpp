// The files of the settings on flash. The first byte tells the area, and whether the rest is a
// whole file, the last commit's or the one's before, or the records of a file that is sound else.
#include "ams_print.h"
#include "check.h"
#include "flash.h"

namespace {

/* Whether these are records from end to end. */
bool AreRecords(std::string_view rest) {
  std::string_view key, value;
  while (!rest.empty())
    if (!FlashNext(&rest, &key, &value)) return false;
  return true;
}

void Remove(const std::string &area) {
  for (const char *name : {"", ".1", ".new", ".old", ".bad.1", ".bad.2", ".bad.3", ".bad.4"})
    (void)unlink((area + name).c_str()); /* most are not there */
}

/* Whatever the file is: what is loaded of it are records that stand in it. */
void LoadFile(int area, const std::string &name, std::string_view file) {
  std::string records;
  PutFile(name.c_str(), file);
  Check(FlashLoad(area, &records) == 0, "damage is told as an error");
  Check(AreRecords(records), "what is loaded are no records");
  Check(file.find(records) != file.npos, "what is loaded is not the file's");
}

/* Records come back as they are; what is none makes the file a damaged one. */
void LoadRecords(int area, const std::string &records) {
  std::string loaded;
  Check(FlashStore(area, records) == 1, "a new commit is not written");
  Check(FlashStore(area, records) == 0, "the same is written twice");
  Check(FlashLoad(area, &loaded) == 0, "damage is told as an error");
  Check(loaded == (AreRecords(records) ? records : ""), "a commit is read as another one");
  FlashUndo(area);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  DF_PRT_MAP[0].level = 6; /* records are made, not written */
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  int area = 1 + (data[0] & 1);
  const std::string name = "/var/nvram/area" + std::to_string(area);
  std::string_view rest = TextOf(data + 1, size - 1);
  if ((data[0] & 2) != 0)
    LoadRecords(area, std::string(rest));
  else
    LoadFile(area, (data[0] & 4) != 0 ? name + ".1" : name, rest);
  Remove(name);
  return 0;
}
