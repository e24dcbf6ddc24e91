// SPDX-License-Identifier: GPL-2.0-or-later
//
// A package and what was found in it, for people. All text out of a package is made safe for a
// terminal first; every text ends in a newline.
#pragma once

#include <string>

#include "tools/fwpkg/finding.h"
#include "tools/fwpkg/package_file.h"

namespace fwpkg {

/// The table of parts, the room left, and the content identifier: the digest that the device
/// prints.
std::string layout_text(const package_file &file);

/// Header, sums, parts, conditions and features of the package in the file `name`, whose own
/// SHA-256 is `sha256`.
std::string package_text(const package_file &file, const std::string &name,
                         const std::string &sha256);

/// One line a finding: "warning: part 0 (bios): ...". `colour` marks the severity for a terminal.
std::string finding_text(const finding &one, bool colour);

} // namespace fwpkg
