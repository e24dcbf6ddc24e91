// SPDX-License-Identifier: GPL-2.0-or-later
//
// Sums by which people and boot loaders know a package and its parts again.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/fwpkg/package_file.h"

namespace fwpkg {

/// Of the bytes that the device writes for one part: as many as its size says, from the block on in
/// which its offset lies, zeros behind the package's end in its last block.
struct part_sums {
    uint32_t crc32;     ///< as the partition's trailer will hold it
    std::string sha256; ///< hexadecimal
};

/// The sums of each part of `file` in table order; none where nothing would be written or not all
/// of it is in the package.
std::vector<std::optional<part_sums>> sum_parts(const package_file &file);

/// Where the device takes the data of `part` from in `blocks` (see whole_blocks); empty where
/// nothing would be written or not all of it is there.
std::span<const uint8_t> written_data(std::span<const uint8_t> blocks, const package_part &part);

} // namespace fwpkg
