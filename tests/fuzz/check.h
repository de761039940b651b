// What the fuzz targets share: their entry, a check that ends the process with its reason, blocks
// that end where their bytes do, and the files that a parser reads.
#pragma once

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);

/* Declares and begins a function that stands in the place of the real one. */
#define WRAPPED(result, name, ...)              \
  extern "C" result __wrap_##name(__VA_ARGS__); \
  extern "C" result __wrap_##name(__VA_ARGS__)

/* sleep() of a target, whose code waits for nothing. libFuzzer's own thread, which looks at the
   memory each second, does: else it would take half of the processor. */
inline unsigned SleepOfOthers(unsigned seconds) {
  if (gettid() != getpid()) std::this_thread::sleep_for(std::chrono::seconds(seconds));
  return 0;
}

/* Past the stream, which a target may have silenced. */
inline void Check(bool holds, const char *what) {
  if (holds) return;
  dprintf(STDERR_FILENO, "fuzz: %s\n", what);
  abort();
}

template <size_t... N>
void CheckTexts(const char (&...texts)[N]) {
  (Check(memchr(texts, '\0', N) != nullptr, "a text is not terminated"), ...);
}

/* A block that ends where the text does, so that the sanitizer sees each byte behind it. */
inline std::unique_ptr<char[]> Block(const uint8_t *data, size_t size, size_t with_nul) {
  std::unique_ptr<char[]> block(new char[size + with_nul]);
  memcpy(block.get(), data, size);
  if (with_nul != 0) block[size] = '\0';
  return block;
}

inline std::string_view TextOf(const uint8_t *data, size_t size) {
  return {reinterpret_cast<const char *>(data), size};
}

/* Takes what stands before the next `end` off an input; all of it without one. */
inline std::string_view TakePiece(std::string_view *input, char end) {
  std::string_view piece = input->substr(0, input->find(end));
  input->remove_prefix(piece.size() < input->size() ? piece.size() + 1 : piece.size());
  return piece;
}

/* A stream that takes and forgets all. */
inline FILE *Nowhere() {
  cookie_io_functions_t nothing = {};
  return fopencookie(nullptr, "w", nothing);
}

inline void PutFile(const char *path, std::string_view text) {
  FILE *file = fopen(path, "we");
  Check(file != nullptr, "no file to write: run it through script/fuzz");
  fwrite(text.data(), 1, text.size(), file);
  Check(fclose(file) == 0, "the file system is full");
}
