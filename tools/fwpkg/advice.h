// SPDX-License-Identifier: GPL-2.0-or-later
//
// What is sound as a package and yet cannot work, or hardly as meant, by the design of the device.
#pragma once

#include <string>
#include <vector>

#include "tools/device/device.h"
#include "tools/fwpkg/finding.h"
#include "tools/fwpkg/package_file.h"

namespace fwpkg {

/// A device and the name of its description's file.
struct named_device {
    std::string name;
    device description;
};

/// Warnings about a package that was read up to its table. `devices` give the sizes of partitions;
/// there may be none.
std::vector<finding> advise(const package_file &file, const std::vector<named_device> &devices);

} // namespace fwpkg
