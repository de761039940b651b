// SHA-256 as FIPS 180-4 has it: padding, then 64 rounds a block of 64 bytes.
#include "sha256.h"

#include <algorithm>
#include <cstring>

namespace {

using State = std::array<uint32_t, 8>;
constexpr size_t kBlock = 64;

/* Fractional parts of the cube roots of the first 64 primes. */
constexpr uint32_t kRound[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

constexpr State kStart = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                          0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

inline uint32_t Rotate(uint32_t word, int bits) { return word >> bits | word << (32 - bits); }

inline uint32_t LoadBig(const uint8_t *bytes) {
  uint32_t word;
  memcpy(&word, bytes, sizeof word);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  word = __builtin_bswap32(word);
#endif
  return word;
}

inline void StoreBig(uint8_t *bytes, uint32_t word) {
  for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(word >> (24 - 8 * i));
}

/* One round with the roles of the words already turned, so that no word is moved. */
inline void Round(uint32_t a, uint32_t b, uint32_t c, uint32_t &d, uint32_t e, uint32_t f,
                  uint32_t g, uint32_t &h, uint32_t input) {
  h += (Rotate(e, 6) ^ Rotate(e, 11) ^ Rotate(e, 25)) + (g ^ (e & (f ^ g))) + input;
  d += h;
  h += (Rotate(a, 2) ^ Rotate(a, 13) ^ Rotate(a, 22)) + ((a & b) | (c & (a | b)));
}

/* The schedule word `i`, in place of the one 16 before it. */
inline uint32_t Extend(uint32_t (&w)[16], int i) {
  uint32_t early = w[(i + 1) & 15], late = w[(i + 14) & 15];
  w[i & 15] += (Rotate(early, 7) ^ Rotate(early, 18) ^ early >> 3) + w[(i + 9) & 15] +
               (Rotate(late, 17) ^ Rotate(late, 19) ^ late >> 10);
  return w[i & 15];
}

/* Sixteen rounds are unrolled, so that no word of the state is moved. */
void Compress(State &state, const uint8_t *block) {
  uint32_t w[16];
  State s = state;
  for (int i = 0; i < 16; ++i) w[i] = LoadBig(block + 4 * i);
  for (int i = 0; i < 64; i += 16) {
#pragma GCC unroll 16
    for (int n = 0; n < 16; ++n)
      Round(s[-n & 7], s[(1 - n) & 7], s[(2 - n) & 7], s[(3 - n) & 7], s[(4 - n) & 7],
            s[(5 - n) & 7], s[(6 - n) & 7], s[(7 - n) & 7],
            kRound[i + n] + (i == 0 ? w[n] : Extend(w, n)));
  }
  for (size_t i = 0; i < state.size(); ++i) state[i] += s[i];
}

}  // namespace

std::array<uint8_t, 32> Sha256(const void *data, size_t length) {
  State state = kStart;
  const auto *bytes = static_cast<const uint8_t *>(data);
  size_t whole = length / kBlock * kBlock, rest = length - whole;
  for (size_t at = 0; at < whole; at += kBlock) Compress(state, bytes + at);

  /* What is left, one bit, zeros, and the length in bits as the last eight bytes. */
  uint8_t tail[2 * kBlock] = {};
  size_t size = rest + 9 <= kBlock ? kBlock : 2 * kBlock;
  if (rest != 0) memcpy(tail, bytes + whole, rest);
  tail[rest] = 0x80;
  StoreBig(tail + size - 8, static_cast<uint32_t>(static_cast<uint64_t>(length) >> 29));
  StoreBig(tail + size - 4, static_cast<uint32_t>(length << 3));
  for (size_t at = 0; at < size; at += kBlock) Compress(state, tail + at);

  std::array<uint8_t, 32> digest;
  for (size_t i = 0; i < state.size(); ++i) StoreBig(&digest[4 * i], state[i]);
  return digest;
}
