// SPDX-License-Identifier: GPL-2.0-or-later
//
// SHA-256 (FIPS 180-4), the sum that people compare files by.
#pragma once

#include <cstdint>
#include <span>
#include <string>

/// The digest of `bytes` as 64 hexadecimal digits.
std::string sha256_text(std::span<const uint8_t> bytes);
