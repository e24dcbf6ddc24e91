// SPDX-License-Identifier: GPL-2.0-or-later
//
// Whether two conditions can both hold on one device.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace fwpkg {

enum class overlap {
    none,     ///< no device meets both
    some,     ///< the device in `configuration` meets both
    too_many, ///< none found, and there are more names and values than are tried
    mixed,    ///< none found, but one name is compared as text and as number: there may be one
};

struct overlap_result {
    overlap answer;
    std::map<std::string, std::string> configuration; ///< empty texts stand for unknown names too
};

/// Looks for a device that meets the conditions `a` and `b`, by trying them with the device's own
/// evaluator on every combination of values that any comparison could tell apart.
overlap_result find_overlap(std::span<const uint8_t> a, std::span<const uint8_t> b);

} // namespace fwpkg
