// Digest and shell command beside their peers: OpenSSL's one-shot SHA256 and libc's system.
#include <benchmark/benchmark.h>
#include <openssl/sha.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "ams_config_shell.h"
#include "ams_config_util.h"

namespace {

constexpr char kInput[] = "0123456789abcdef0123456789abcdef"; /* 32 bytes, the longest taken */

void DigestHex(benchmark::State &state) {
  char digest[65];
  for (auto _ : state) benchmark::DoNotOptimize(cfgSha256Hex(kInput, digest));
}

void DigestOpenssl(benchmark::State &state) {
  unsigned char digest[SHA256_DIGEST_LENGTH];
  for (auto _ : state) {
    SHA256(reinterpret_cast<const unsigned char *>(kInput), sizeof(kInput) - 1, digest);
    benchmark::DoNotOptimize(digest);
  }
}

/* Memory of the process that a fork would have to copy page tables for. */
std::vector<char> Touched(const benchmark::State &state) {
  return std::vector<char>(static_cast<size_t>(state.range(0)) << 20, 1);
}

void CommandOurs(benchmark::State &state) {
  std::vector<char> touched = Touched(state);
  for (auto _ : state) cfgSystemCmd("%s", ":");
}

void CommandLibc(benchmark::State &state) {
  std::vector<char> touched = Touched(state);
  for (auto _ : state) benchmark::DoNotOptimize(system(":"));
}

BENCHMARK(DigestHex)->Name("digest/ours");
BENCHMARK(DigestOpenssl)->Name("digest/openssl");
BENCHMARK(CommandOurs)->Name("command/ours")->Arg(0)->Arg(64)->UseRealTime();
BENCHMARK(CommandLibc)->Name("command/libc")->Arg(0)->Arg(64)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
