// SPDX-License-Identifier: GPL-2.0-or-later
//
// Finds the table's messages in a line of a log.
#pragma once

#include <string_view>
#include <vector>

#include "tools/doctor/message_row.h"

namespace doctor {

struct message {
    const message_row *row;
    std::string_view text;                   ///< the whole message, within the line
    std::vector<std::string_view> arguments; ///< what its directives stand for, within the line
};

/// The messages in `line`, a line without its end, in order. They may begin anywhere in it, behind
/// a time stamp or behind another message. Where several rows could begin at a place, the one that
/// says most of the text itself is taken. What is no message is skipped.
std::vector<message> find_messages(std::string_view line);

} // namespace doctor
