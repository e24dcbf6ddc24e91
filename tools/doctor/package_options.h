// SPDX-License-Identifier: GPL-2.0-or-later
//
// The options by which a command line names packages to compare partitions with.
#pragma once

#include <string>
#include <vector>

#include "tools/common/command_line.h"
#include "tools/doctor/flash_judge.h"

namespace doctor {

struct package_options {
    std::vector<std::string> packages;
    std::vector<std::string> keys;
};

/// Adds --package and --key-file, each of which may be repeated. `options` outlives the parsing.
void add_package_options(const command &to, package_options &options);

/// What was parsed: each --key-file is that of the --package before it. Throws failure for one that
/// is not.
std::vector<package_choice> package_choices(const command &from, const package_options &options);

} // namespace doctor
