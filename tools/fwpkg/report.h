// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the commands print: for people as text with a newline at its end, for programs as JSON. All
// text out of a package is made safe for a terminal first.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "tools/fwpkg/finding.h"
#include "tools/fwpkg/package_file.h"

namespace fwpkg {

/// Members stand in the order in which they are added.
using json = nlohmann::ordered_json;

/// The table of parts, the room left, and the content identifier: the digest that the device
/// prints.
std::string layout_text(const package_file &file);

/// Header, digest, parts, conditions and features of the package in the file `name`.
std::string package_text(const package_file &file, const std::string &name);
json package_json(const package_file &file, const std::string &name);

/// One line a finding: "warning: part 0 (bios): ...". `colour` marks the severity for a terminal.
std::string finding_text(const finding &finding, bool colour);
json finding_json(const finding &finding);

/// The text of `document` as it is printed: indented, with a newline at its end.
std::string json_text(const json &document);

} // namespace fwpkg
