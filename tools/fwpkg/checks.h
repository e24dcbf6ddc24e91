// SPDX-License-Identifier: GPL-2.0-or-later
//
// What is wrong or odd about a package.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/fwpkg/finding.h"
#include "tools/fwpkg/package_file.h"
#include "tools/fwpkg/planner.h"

namespace fwpkg {

/// The form of `file`: all that a device checks, and all that it trusts. In the order of the file.
std::vector<finding> check_form(const package_file &file);

/// Warnings about a package that was read up to its table: what is sound as a package and yet
/// cannot work, or hardly as meant, by the design of the devices.
std::vector<finding> check_use(const package_file &file);

/// An error for each device that would refuse the package `bytes` or fail in writing it, and for
/// each part that would be written without room for the trailer. `key` is that of devices whose
/// description has none.
std::vector<finding> check_devices(std::span<const uint8_t> bytes,
                                   const std::optional<std::string> &key,
                                   const std::vector<named_device> &devices);

} // namespace fwpkg
