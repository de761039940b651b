// See store_support.h.
#include "store_support.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "../nvram/nvram_calls.h"
#include "tds.h"

std::string data_folder = TEST_DATA "/store";
AmsTree *root;

namespace {

AmsTree *LoadFile(const std::string &name) {
  FILE *file = fopen(name.c_str(), "re");
  AmsTree *tree = ams_mxmlLoadFile(nullptr, file, nullptr);
  fclose(file);
  return tree;
}

/* Text forms with the separator shown as "|"; "(none)" for a call that failed. */
template <typename Call>
std::string Shown(const Call &call) {
  char *text = nullptr;
  std::string shown = call(&text) == 0 ? text : text == nullptr ? "(none)" : "failed, with a text";
  __tds_free(text);
  std::replace(shown.begin(), shown.end(), char{AMS_SEPARATOR}, '|');
  return shown;
}
}  // namespace

std::string FileText(const std::string &name) {
  std::stringstream content;
  content << std::ifstream(name, std::ios::binary).rdbuf();
  return content.str();
}

std::string Model() { return FileText(data_folder + "/model.xml"); }

AmsTree *Load(const std::string &xml) {
  std::string name = testing::TempDir() + "store_test." + std::to_string(getpid());
  std::ofstream(name, std::ios::binary) << xml;
  AmsTree *tree = LoadFile(name);
  unlink(name.c_str());
  return tree;
}

std::string Text(const std::string &path) {
  return Shown([&](char **text) { return ams_get_node_value(root, path.c_str(), text); });
}

std::string Leaf(const std::string &path) {
  char value[4096];
  return ams_mxml_get_leaf_value(path.c_str(), value) == 0 ? value : "(none)";
}

std::string Indexes(const std::string &array) {
  char list[1024], highest[16];
  if (ams_get_idxes(root, array.c_str(), list) != 0) return "(none)";
  EXPECT_EQ(ams_get_array_maxIndex(root, array.c_str(), highest), 0);
  const char *comma = strrchr(list, ',');
  EXPECT_STREQ(highest, list[0] == '\0' ? "0" : comma == nullptr ? list : comma + 1);
  return list;
}

void Store::SetUpTestSuite() {
  gptXmlTrees = ShmPoolSrvInit();
  ASSERT_NE(gptXmlTrees, nullptr);
}

void Store::SetUp() {
  ASSERT_EQ(nvram_clean(NVTYPE_STAGING) | nvram_commit(NVTYPE_STAGING), 0);
  gptXmlTrees->root = root = Load(Model());
  ASSERT_NE(root, nullptr);
}

namespace {

std::string WithAttributes(const std::string &path, int changed) {
  return Shown([&](char **text) { return ams_read_withAttr(root, path.c_str(), changed, text); });
}
std::string Attribute(const std::string &path, const std::string &name) {
  char value[256];
  return ams_get_node_attr(root, path.c_str(), name.c_str(), value) == 0 ? value : "(none)";
}
std::string Children(const std::string &parent) {
  char url[AMS_PATH_SIZE];
  std::string names;
  int rc = ams_get_first_child(root, parent.c_str(), url);
  for (; rc == 0; rc = ams_get_next_child(root, std::string(url).c_str(), url))
    names += (names.empty() ? "" : " ") + std::string(strrchr(url, '.') + 1);
  return names;
}

/* ---- scripts ---- */

std::string remembered; /* a part of the tree */
AmsUndo *undo;

using Word = const std::string &;
template <int (*write)(AmsTree *, const char *, const char *)>
std::string Write(Word path, Word value) {
  return std::to_string(write(root, path.c_str(), value.c_str()));
}
template <int (*find)(AmsTree *, const char *, char *)>
std::string Find(Word path, Word) {
  char url[AMS_PATH_SIZE];
  return find(root, path.c_str(), url) == 0 ? url : "(none)";
}
template <std::string (*read)(Word path)>
std::string Read(Word path, Word) {
  return read(path);
}
std::string Notified(Word path) {
  char value[16];
  return ams_get_attr(root, path.c_str(), value, sizeof value) == 0 ? value : "(none)";
}
std::string TextChecked(Word path) {
  const std::string text = Text(path); /* with what was asked before it fresh in mind */
  EXPECT_EQ(ams_check_node(root, path.c_str()) == 0, text != "(none)") << path;
  return text;
}
/* Everything that can be asked of a part of the tree. */
std::string Dump(Word top) {
  std::string all = top + " " + Attribute(top, "type") + " " + Attribute(top, "op") + " " +
                    Notified(top) + " " + Children(top) + "\n" + WithAttributes(top, 0) + "\n";
  std::istringstream names(Children(top));
  for (std::string name; names >> name;) all += Dump(top + "." + name);
  return all;
}
std::string Keep(Word path, Word value) {
  return std::to_string(nvram_set(path.c_str(), value.c_str(), NVTYPE_STAGING));
}
std::string AllKept(Word below) {
  std::string all;
  for (const auto &[key, value] : Walk(NVTYPE_STAGING, below.c_str()))
    all += (all.empty() ? "" : "|") + key.substr(below.size()) + "=" + value;
  return all;
}
std::string StartAnew(Word xml) {
  root = Load(xml);
  return std::to_string(update_from_nvram(root, NVTYPE_STAGING));
}
/* Saved with this margin for start tags, or compact ("-"). The form differs from the last one's. */
std::string SaveAndLoad(Word, Word margin) {
  static std::string last;
  const std::string file = testing::TempDir() + "saved.xml";
  if (isdigit(margin[0]) != 0) mxmlSetWrapMargin(std::stoi(margin));
  EXPECT_EQ((margin == "-" ? ams_align_xml : ams_save_xml)(root, file.c_str()), 0);
  EXPECT_NE(last, FileText(file));
  last = FileText(file);
  return (root = LoadFile(file)) == nullptr ? "(none)" : "0";
}
/* The backup's file, or a folder in its place: the result, and what is said of it on standard
   output, or the lines that are named on standard error. */
std::string LoadBackup(Word kind, Word content) {
  if (kind == "folder")
    EXPECT_EQ(mkdir("/var/config/backup.conf", 0700), 0);
  else
    std::ofstream("/var/config/backup.conf") << content;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  std::string result = std::to_string(ams_mxml_load_to_staging(3));
  fflush(stdout);
  std::istringstream said(testing::internal::GetCapturedStdout());
  std::istringstream named(testing::internal::GetCapturedStderr());
  for (std::string line; std::getline(said, line);) result += " " + line;
  for (std::string word; named >> word;)
    if (word.find("backup.conf:") != word.npos) result += " " + word;
  EXPECT_EQ(remove("/var/config/backup.conf"), 0);
  return result;
}
/* The file with other ports in the template and in row 2. */
std::string OtherModel() {
  std::string model = Model();
  for (const char *value : {">22<", ">80<"}) model.replace(model.find(value), 4, ">66<");
  return model;
}

const std::map<std::string, std::string (*)(Word path, Word value)> kVerbs = {
    {"text", Read<TextChecked>},
    {"leaf", Read<Leaf>},
    {"attr", Attribute},
    {"with", [](Word path, Word) { return WithAttributes(path, 0); }},
    {"changed", [](Word path, Word) { return WithAttributes(path, 1); }},
    {"children", Read<Children>},
    {"next", Find<ams_get_next_child>},
    {"list", Read<Indexes>},
    {"set", Write<ams_set_node_value>},
    {"status", Write<ams_sset_node_value>},
    {"notify", Write<ams_set_attr>},
    {"notified", Read<Notified>},
    {"add", Find<ams_add_obj>},
    {"del", [](Word path, Word) { return std::to_string(ams_del_obj(root, path.c_str())); }},
    {"begin", [](Word, Word) { return std::to_string(ams_write_begin()); }},
    {"end", [](Word, Word) { return std::to_string(ams_write_end()); }},
    {"cancel", [](Word, Word) { return std::to_string(ams_write_cancel()); }},
    {"note",
     [](Word path, Word) { return std::to_string(ams_undo_note(root, &undo, path.c_str())); }},
    {"undo",
     [](Word, Word) { return std::to_string(ams_undo_end(std::exchange(undo, nullptr), 1)); }},
    {"keep", Keep},
    {"kept", [](Word path, Word) { return Get(path.c_str()); }},
    {"keeps", Read<AllKept>},
    {"forget", [](Word, Word) { return std::to_string(nvram_clean(NVTYPE_STAGING)); }},
    {"start", [](Word, Word) { return StartAnew(Model()); }},
    {"start-other", [](Word, Word) { return StartAnew(OtherModel()); }},
    {"load", [](Word file, Word) { return StartAnew(FileText(data_folder + "/" + file)); }},
    {"reload", SaveAndLoad},
    {"backup", LoadBackup},
    {"remember", [](Word path, Word) { return remembered = Dump(path), std::string("0"); }},
    {"same", [](Word path, Word) { return std::string(Dump(path) == remembered ? "yes" : "no"); }},
};

std::string Unescaped(std::string text) {
  for (size_t at = 0; (at = text.find('\\', at)) != text.npos; ++at)
    text.replace(at, 3, 1, static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16)));
  return text;
}

std::string RunLine(const std::string &line) {
  std::string verb, path, value, result;
  std::stringstream words(line);
  int times = 1;
  if (isdigit(line[0]) != 0) words >> times;
  words >> verb >> path >> std::ws;
  std::getline(words, value);
  if (!path.empty() && (path[0] == '.' || path == "/"))
    path = "InternetGatewayDevice" + (path == "/" ? "" : path);
  for (; times > 0; --times) result = kVerbs.at(verb)(Unescaped(path), Unescaped(value));
  return result;
}

}  // namespace

void RunScripts(const std::string &folder, int least) {
  for (const auto &entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() != ".txt") continue;
    --least;
    ASSERT_EQ(nvram_clean(NVTYPE_STAGING), 0);
    ASSERT_NE(root = Load(Model()), nullptr);
    std::istringstream lines(FileText(entry.path()));
    for (std::string line; std::getline(lines, line);) {
      size_t arrow = line.find(" =>");
      if (line.empty() || line[0] == '#') continue;
      std::string expected =
          arrow == line.npos ? "" : line.substr(std::min(arrow + 4, line.size()));
      if (expected[0] == '.') expected.insert(0, "InternetGatewayDevice");
      ASSERT_EQ(RunLine(line.substr(0, arrow)), expected) << entry.path() << ": " << line;
    }
  }
  EXPECT_LE(least, 0) << "scripts are missing in " << folder;
}
