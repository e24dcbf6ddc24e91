// SPDX-License-Identifier: GPL-2.0-or-later
//
// Texts that several commands print alike.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/common/printable.h"

namespace fwpkg {

/// "0b 72 61": the bytes in hexadecimal, blanks between.
std::string hex(std::span<const uint8_t> bytes);

/// The digest as 32 hexadecimal digits.
std::string hex_digest(std::span<const uint8_t> digest);

/// A word in hexadecimal: eight digits.
std::string hex_word(uint32_t word);

/// The name of a part type as the device prints it: one of part_type_names, "unknown<N>" above.
std::string type_name(int type);

/// Columns of texts, as wide as their widest text, two blanks between; a line a row.
std::string table_text(const std::vector<std::vector<std::string>> &rows);

/// "1 part", "2 parts".
std::string count_of(uint64_t count, std::string_view noun);

} // namespace fwpkg
