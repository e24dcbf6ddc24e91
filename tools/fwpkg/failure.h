// SPDX-License-Identifier: GPL-2.0-or-later
//
// How fwpkg's units report what ends a command: one line, thrown, printed once for the program.
#pragma once

#include <string>

#include "tools/common/command_line.h"

namespace fwpkg {

/// The exit statuses of the program.
enum exit_status : int {
    exit_sound = 0,      ///< done, nothing wrong
    exit_bad = 1,        ///< the package, the manifest or the condition is wrong
    exit_unreadable = 2, ///< wrong usage, or a file that cannot be read or written
};

/// A line that names the file and the place.
struct failure : command_failure {
    explicit failure(const std::string &line, int exit = exit_bad) : command_failure(line, exit) {}
};

} // namespace fwpkg
