// SPDX-License-Identifier: GPL-2.0-or-later
//
// The form of a package: all that a device checks, and all that it trusts.
#pragma once

#include <vector>

#include "tools/fwpkg/finding.h"
#include "tools/fwpkg/package_file.h"

namespace fwpkg {

/// What is wrong or odd about the form of `file`, in the order of the file.
std::vector<finding> check_form(const package_file &file);

} // namespace fwpkg
