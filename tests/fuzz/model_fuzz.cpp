// Data-model files: any bytes as one. What is refused leaves the tree as it was; what is taken can
// be saved, and loads as the same tree again.
#include "serve.h"
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

std::string tree;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  stderr = Nowhere(); /* a line for each file that is refused */
  Serve();
  LoadSmallModel();
  tree = TreeText();
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0; /* as a file in memory it would be none */
  bool taken = LoadModel(fmemopen(const_cast<uint8_t *>(data), size, "r"));
  if (!taken) {
    Check(TreeText() == tree, "a file that is refused changes the tree");
    return 0;
  }
  tree = TreeText();
  Check(ams_align_xml(gptXmlTrees->root, kSaved) == 0, "the tree cannot be saved");
  Check(LoadModel(fopen(kSaved, "re")), "a file that was saved is refused");
  Check(TreeText() == tree, "the tree changes when it is saved");
  return 0;
}
