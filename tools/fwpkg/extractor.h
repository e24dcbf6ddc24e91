// SPDX-License-Identifier: GPL-2.0-or-later
//
// The data of a package's parts, as files again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/fwpkg/package_file.h"

namespace fwpkg {

/// One part's data and the name for its file, "0-kernel.bin"; types without a usable name give
/// "0-type5.bin".
struct extracted_part {
    std::string name;
    std::vector<uint8_t> data;
};

/// The parts of a package that was read whole, in table order, those without data left out. Throws
/// failure, before anything is given back, where the digest is wrong or data lies outside the
/// package or not at the start of a block, from where the device writes.
std::vector<extracted_part> extract_parts(const package_file &file);

} // namespace fwpkg
