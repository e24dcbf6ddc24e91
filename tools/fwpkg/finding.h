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

/// Findings in the making. In a message "{size}" stands for the number of that name; of several
/// the last, so that foreign text goes before it.
struct findings {
    std::vector<finding> all;

    void error(const std::string &place, const std::string &message, finding_numbers numbers = {})
    {
        add(severity::error, place, message, std::move(numbers));
    }
    void warning(const std::string &place, const std::string &message, finding_numbers numbers = {})
    {
        add(severity::warning, place, message, std::move(numbers));
    }
    void add(const std::vector<finding> &more)
    {
        all.insert(all.end(), more.begin(), more.end());
    }

private:
    void add(severity level, const std::string &place, std::string message, finding_numbers numbers)
    {
        for (const auto &[name, number] : numbers)
            if (const size_t at = message.rfind("{" + name + "}"); at != std::string::npos)
                message.replace(at, name.size() + 2, std::to_string(number));
        all.push_back({level, place, std::move(message), std::move(numbers)});
    }
};

} // namespace fwpkg
