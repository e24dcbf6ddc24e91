// SPDX-License-Identifier: GPL-2.0-or-later
//
// Foreign text on its way to a terminal: what a file or a package says may hold control characters.
#pragma once

#include <string>
#include <string_view>

/// True when `text` can be shown on a terminal as it stands: UTF-8 without control characters and
/// without the marks that turn the direction of writing.
bool is_printable(std::string_view text);

/// `text` as it stands when it is printable, else with `\xNN` for each byte outside printable ASCII
/// and for the backslash.
std::string printable(std::string_view text);
