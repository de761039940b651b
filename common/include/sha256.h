// SHA-256 (FIPS 180-4). Any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/* The digest of `length` bytes. */
std::array<uint8_t, 32> Sha256(const void *data, size_t length);
