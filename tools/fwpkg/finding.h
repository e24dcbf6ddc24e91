// SPDX-License-Identifier: GPL-2.0-or-later
//
// Something about a package that its maker should know.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace fwpkg {

enum class severity {
    warning, ///< works as the format says, but hardly as meant
    error,   ///< refused, misread or damaged
};

struct finding {
    severity level;
    std::string place; ///< "header", "part table", "part 0 (kernel)", "part 0 (kernel) conditions"
    std::string message;                                   ///< the numbers included
    std::vector<std::pair<std::string, uint64_t>> numbers; ///< the same, by name
};

} // namespace fwpkg
