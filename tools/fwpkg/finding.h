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

/// The numbers of a finding by name.
using finding_numbers = std::vector<std::pair<std::string, uint64_t>>;

struct finding {
    severity level;
    std::string place; ///< "header", "part table", "part 0 (kernel)", "part 0 (kernel) conditions"
    std::string message;     ///< the numbers included
    finding_numbers numbers; ///< the same, by name
};

/// Findings in the making.
struct findings {
    std::vector<finding> all;

    void error(const std::string &place, const std::string &message, finding_numbers numbers = {})
    {
        all.push_back({severity::error, place, message, std::move(numbers)});
    }
    void warning(const std::string &place, const std::string &message, finding_numbers numbers = {})
    {
        all.push_back({severity::warning, place, message, std::move(numbers)});
    }
    void add(const std::vector<finding> &more)
    {
        all.insert(all.end(), more.begin(), more.end());
    }
};

} // namespace fwpkg
