// SPDX-License-Identifier: GPL-2.0-or-later
//
// What `fwpkg condition` says about a condition.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/fwpkg/condition_code.h"

namespace fwpkg {

/// One item of the code, and how a comparison ends.
struct explained_item {
    condition_item item;
    std::optional<std::string> actual; ///< of a comparison: the value given for its name
    bool holds = false;                ///< of a comparison
};

struct condition_report {
    std::vector<uint8_t> code;
    std::vector<explained_item> items;
    bool holds = false;                ///< the whole condition, with the values given
    std::vector<std::string> warnings; ///< one sentence each
};

/// The report on `text` for the names and values in `values`, the rest unknown. Throws failure when
/// the text does not compile.
condition_report explain_condition(const std::string &text,
                                   const std::map<std::string, std::string> &values);

/// What an item that is no comparison does: "and not", "close group, or end".
const char *operator_name(uint8_t code);

/// The bytes, each item, the result; ends in a newline. The warnings are not in it.
std::string condition_text_report(const condition_report &report);

} // namespace fwpkg
