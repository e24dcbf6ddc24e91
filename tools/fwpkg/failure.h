// SPDX-License-Identifier: GPL-2.0-or-later
//
// How fwpkg's units report what ends a command: one line, thrown, printed once by main.
#pragma once

#include <stdexcept>
#include <string>

namespace fwpkg {

/// The exit statuses of the program.
enum exit_status : int {
    exit_sound = 0,      ///< done, nothing wrong
    exit_bad = 1,        ///< the package, the manifest or the condition is wrong
    exit_unreadable = 2, ///< wrong usage, or a file that cannot be read or written
};

/// One line that names the file and the place, without the program's name and a newline.
struct failure : std::runtime_error {
    explicit failure(const std::string &line, exit_status exit = exit_bad)
        : std::runtime_error(line), status(exit)
    {
    }
    exit_status status;
};

} // namespace fwpkg
