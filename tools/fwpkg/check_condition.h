// SPDX-License-Identifier: GPL-2.0-or-later
//
// The traps of the condition language: what compiles, and hardly means what its author meant. They
// are read off the compiled code, so they hold for a package's conditions as for a fresh text.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/fwpkg/condition_code.h"

namespace fwpkg {

/// One sentence for each trap in the code that `items` are.
std::vector<std::string> condition_warnings(const std::vector<condition_item> &items);

/// What happens when the comparison `item` meets the value `actual` (none: the name is unknown).
std::vector<std::string> value_warnings(const condition_item &item,
                                        const std::optional<std::string> &actual);

} // namespace fwpkg
