// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the device program's functions are measured against. Apart from the benchmarks, because the
// headers of OpenSSL and zlib use names of ours (MD5_Init, crc32).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace reference {

/// OpenSSL: RC4 with `key` over all of `bytes` in place, then the MD5 of the result.
void decipher_and_digest(std::span<uint8_t> bytes, const char *key, uint8_t digest[16]);

/// zlib's CRC-32 of `bytes`.
uint32_t crc32(std::span<const uint8_t> bytes);

} // namespace reference
