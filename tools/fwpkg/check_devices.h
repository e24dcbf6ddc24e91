// SPDX-License-Identifier: GPL-2.0-or-later
//
// Whether given devices take a package, and have the room that its parts need.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/fwpkg/finding.h"
#include "tools/fwpkg/planner.h"

namespace fwpkg {

/// An error for each device that would refuse the package `bytes` or fail in writing it, and for
/// each part that would be written without room for the trailer. `key` is that of devices whose
/// description has none.
std::vector<finding> check_devices(std::span<const uint8_t> bytes,
                                   const std::optional<std::string> &key,
                                   const std::vector<named_device> &devices);

} // namespace fwpkg
