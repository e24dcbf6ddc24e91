// SPDX-License-Identifier: GPL-2.0-or-later
//
// What each device of a rehearsal must come to.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace simdev {

/// The result for each of `devices` in order. `expect` is "upgraded" or "refused" for all of them,
/// empty for none ("" each), or the path of a TOML file that has one for each, by the name of its
/// description:
///
///     "rev1.toml" = "refused"    # or "upgraded", "failed", "endless"
///
/// Throws failure for a file that cannot be read or has a mistake, that leaves one of the devices
/// out, or names one that is none of them.
std::vector<std::string> read_expectations(const std::string &expect,
                                           const std::vector<std::filesystem::path> &devices);

} // namespace simdev
