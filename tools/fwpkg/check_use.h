// SPDX-License-Identifier: GPL-2.0-or-later
//
// What is sound as a package and yet cannot work, or hardly as meant, by the design of the devices.
#pragma once

#include <vector>

#include "tools/fwpkg/finding.h"
#include "tools/fwpkg/package_file.h"

namespace fwpkg {

/// Warnings about a package that was read up to its table.
std::vector<finding> check_use(const package_file &file);

} // namespace fwpkg
