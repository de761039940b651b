// Gives a fuzz target the files of folders, one after the other: its corpus on machines and under
// sanitizers that have no libFuzzer.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "check.h"

extern "C" [[gnu::weak]] int LLVMFuzzerInitialize(int *, char ***) { return 0; }

int main(int argc, char **argv) {
  int inputs = 0;
  LLVMFuzzerInitialize(&argc, &argv);
  for (int i = 1; i < argc; ++i) {
    for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::string input{std::istreambuf_iterator<char>(file), {}};
      printf("%s\n", entry.path().c_str());
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.data()), input.size());
      ++inputs;
    }
  }
  Check(inputs > 0, "no inputs: name folders with files");
  return 0;
}
