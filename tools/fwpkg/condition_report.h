// SPDX-License-Identifier: GPL-2.0-or-later
//
// What `fwpkg condition` prints.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace fwpkg {

/// What there is to say about a condition.
struct condition_report {
    std::string listing;            ///< the bytes, each item, the result; ends in a newline
    std::vector<std::string> traps; ///< one sentence each
};

/// The report on `text` for the names and values in `values`, the rest unknown. Throws failure when
/// the text does not compile.
condition_report explain_condition(const std::string &text,
                                   const std::map<std::string, std::string> &values);

} // namespace fwpkg
