// SPDX-License-Identifier: GPL-2.0-or-later
//
// Making a package from its manifest. The same manifest, files and key give the same bytes.
//
// The part table stands behind the header, each entry padded to a multiple of four, then the end
// mark where there are fewer than eight entries. The first part's data starts at 4096, each further
// one at the next multiple of 4096, zeros between; a part without data has offset 0, and a package
// without any data ends with its table. docs/package-format.md has the format.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/fwpkg/manifest.h"

namespace fwpkg {

/// A package, and what it was made of.
struct made_package {
    std::vector<uint8_t> bytes;
    std::vector<std::vector<uint8_t>> inputs; ///< what each part's file held
};

/// The package that `recipe` describes, its parts' files read. `key` enciphers and
/// is there exactly when the manifest asks for it. Throws failure, with the numbers, when a file
/// is none or cannot be read, a condition does not compile, the table does not fit the first block
/// or the package the device.
made_package make_package(const manifest &recipe, const std::optional<std::string> &key);

} // namespace fwpkg
