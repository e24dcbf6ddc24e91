// SPDX-License-Identifier: GPL-2.0-or-later
//
// The data of a package's parts: what the device writes, the sums by which people and boot loaders
// know it again, and files of it.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/fwpkg/package_file.h"

namespace fwpkg {

/// Where the device takes the data of `part` from in `blocks` (see whole_blocks): as many bytes as
/// its size says, from the block on in which its offset lies. Empty where nothing would be written
/// or not all of it is there.
std::span<const uint8_t> written_data(std::span<const uint8_t> blocks, const package_part &part);

/// Of the bytes that the device writes for one part, zeros behind the package's end in its last
/// block.
struct part_sums {
    uint32_t crc32;     ///< as the partition's trailer will hold it
    std::string sha256; ///< hexadecimal
};

/// The sums of each part of `file` in table order; none where nothing would be written.
std::vector<std::optional<part_sums>> sum_parts(const package_file &file);

/// One part's data and the name for its file, "0-kernel.bin"; types without a usable name give
/// "0-type5.bin".
struct extracted_part {
    std::string name;
    std::span<const uint8_t> data; ///< in the blocks of the package_file
};

/// The parts of a package that was read whole, in table order, those without data left out. Throws
/// failure, before anything is given back, where the digest is wrong or data lies outside the
/// package or not at the start of a block, from where the device writes.
std::vector<extracted_part> extract_parts(const package_file &file);

} // namespace fwpkg
