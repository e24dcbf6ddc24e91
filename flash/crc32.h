// SPDX-License-Identifier: GPL-2.0-or-later
//
// CRC-32 as in IEEE 802.3 and zlib: reflected polynomial 0xEDB88320, complemented at both ends.
#pragma once

#include <cstddef>
#include <cstdint>

/// The CRC of what `crc` stands for followed by `length` bytes at `data`; a chain starts from 0.
/// crc32(crc32(0, a, n), b, m) is the CRC of a followed by b. 0 when `data` is null.
uint32_t crc32(uint32_t crc, const uint8_t *data, size_t length);
