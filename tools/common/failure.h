// SPDX-License-Identifier: GPL-2.0-or-later
//
// How the host tools report what ends a command, and the exit statuses that they share.
#pragma once

#include <stdexcept>
#include <string>

/// What a host tool's exit status says. The same kind of trouble has the same status in every tool
/// and command.
enum exit_status : int {
    exit_good = 0,    ///< done; where something was judged: it is as it should be
    exit_bad = 1,     ///< done, and the answer is no: not sound, different, not as expected
    exit_trouble = 2, ///< no answer: wrong usage, a description, manifest or condition with a
                      ///< mistake, a file that cannot be read or written, a key that is missing
    /// In the place of exit_trouble for the tool whose exit status may be that of the program that
    /// it runs, which ends with 0, 1 and 2 itself.
    exit_runner_trouble = 125,
};

/// What ends a command: one line for the user, without the program's name and a newline, that names
/// the file and the place. What it says is not made safe for a terminal yet.
struct failure : std::runtime_error {
    explicit failure(const std::string &line, int exit = exit_trouble)
        : std::runtime_error(line), status(exit)
    {
    }
    int status; ///< the program's exit status
};
