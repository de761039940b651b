// Settings as lines of text: any bytes as the backup of the settings, into nvram, and from there
// over the tree of tests/data/request_fuzz.xml.
#include "nvram.h"
#include "serve.h"
#include "tds.h"

namespace {

constexpr char kBackup[] = "/var/config/backup.conf";

/* Whether the text has the line, which may end in carriage returns. */
int CheckLine(const char *key, const char *value, void *text) {
  const std::string line = std::string(key) + "=" + value;
  const std::string &all = *static_cast<std::string *>(text);
  for (size_t at = 0; (at = all.find(line, at)) != all.npos; ++at) {
    size_t behind = all.find_first_not_of('\r', at + line.size());
    if ((at == 0 || all[at - 1] == '\n') && (behind == all.npos || all[behind] == '\n')) return 0;
  }
  Check(false, "a setting that no line has");
  return -1;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  stdout = Nowhere();
  Serve();
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string text(TextOf(data, size));
  char *tree = nullptr;
  Check(nvram_clean(NVTYPE_STAGING) == 0, "nvram cannot be cleaned");
  PutFile(kBackup, text);
  (void)ams_mxml_load_to_staging(3); /* -1: there is none */
  Check(nvram_walk(NVTYPE_STAGING, "", CheckLine, &text) == 0, "nvram cannot be read");
  LoadSmallModel();
  Check(update_from_nvram(gptXmlTrees->root, NVTYPE_STAGING) == 0, "a setting stops the others");
  Check(ams_get_node_value(gptXmlTrees->root, "InternetGatewayDevice", &tree) == 0,
        "the tree cannot be read");
  Check(strstr(tree, "Leaf=text") == tree, "a read-only leaf is another one");
  __tds_free(tree);
  return 0;
}
