// Data-model files: any bytes as one. What is refused leaves the tree as it was; what is taken can
// be saved, and loads as the same tree again.
#include "ams_print.h"
#include "ams_store.h"
#include "check.h"
#include "tds.h"

namespace {

constexpr char kRoot[] = "InternetGatewayDevice", kSaved[] = "/tmp/saved.xml";

/* All of the tree, values and attributes. */
std::string TreeText() {
  char *text = nullptr;
  Check(ams_read_withAttr(gptXmlTrees->root, kRoot, 0, &text) == 0, "the tree cannot be read");
  std::string whole = text;
  __tds_free(text);
  return whole;
}

bool Load(FILE *file) {
  Check(file != nullptr, "no file");
  AmsTree *root = ams_mxmlLoadFile(nullptr, file, nullptr);
  fclose(file);
  if (root != nullptr) gptXmlTrees->root = root;
  return root != nullptr;
}

std::string tree;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  DF_PRT_MAP[0].level = 6; /* records are made, not written */
  stderr = Nowhere();      /* a line for each file that is refused */
  gptXmlTrees = ShmPoolSrvInit();
  Check(gptXmlTrees != nullptr, "no store: run it through script/fuzz");
  Check(Load(fopen(FUZZ_MODEL, "re")), "the data model does not load");
  tree = TreeText();
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0; /* as a file in memory it would be none */
  bool taken = Load(fmemopen(const_cast<uint8_t *>(data), size, "r"));
  if (!taken) {
    Check(TreeText() == tree, "a file that is refused changes the tree");
    return 0;
  }
  tree = TreeText();
  Check(ams_align_xml(gptXmlTrees->root, kSaved) == 0, "the tree cannot be saved");
  Check(Load(fopen(kSaved, "re")), "a file that was saved is refused");
  Check(TreeText() == tree, "the tree changes when it is saved");
  return 0;
}
