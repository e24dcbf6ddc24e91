// SPDX-License-Identifier: GPL-2.0-or-later
//
// A log without its secrets.
#pragma once

#include <istream>
#include <ostream>
#include <string>
#include <string_view>

namespace doctor {

/// `text` with "***" in place of the password in each URL of it, and of what follows "using: " to
/// its end, the key. A piece of a URL too many is rather hidden than one of a password too few.
std::string without_secrets(std::string_view text);

/// Copies the log line by line without its secrets. The first line is left out unless a message
/// begins it, since it may be the rest of one that names the key; so is a line that is too long to
/// be one of the program's. Line ends become "\n".
void redact(std::istream &in, std::ostream &out);

} // namespace doctor
