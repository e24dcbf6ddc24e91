// SPDX-License-Identifier: GPL-2.0-or-later
//
// Judging a package: all that the device checks, and all that it trusts.
#pragma once

#include <vector>

#include "tools/fwpkg/advice.h"
#include "tools/fwpkg/finding.h"
#include "tools/fwpkg/package_file.h"

namespace fwpkg {

/// Everything found, the errors of the package's form first, then the warnings of advise().
std::vector<finding> check_package(const package_file &file,
                                   const std::vector<named_device> &devices);

} // namespace fwpkg
