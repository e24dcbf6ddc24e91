// SPDX-License-Identifier: GPL-2.0-or-later
//
// The page as the program has it; made at build time from the folder page/.
#pragma once

#include <string_view>

namespace follow {

extern const std::string_view page_text;

/// Its content security policy, which it also names itself.
extern const char *const page_policy;

} // namespace follow
