// SPDX-License-Identifier: GPL-2.0-or-later
//
// How the host tools run a command and report what ends it: one line on standard error, with the
// program's name in front.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

/// What ends a command: one line for the user, without the program's name and a newline, and the
/// exit status of the program.
struct command_failure : std::runtime_error {
    command_failure(const std::string &line, int exit_status)
        : std::runtime_error(line), status(exit_status)
    {
    }
    int status;
};

/// Parses the command line, runs `command` and flushes standard output. Returns the exit status:
/// that of `command` or of the command_failure that it threw; 0 where the user asked for help;
/// `failure_status` for a wrong command line, output that cannot be written, and whatever else is
/// thrown.
int run_command_line(CLI::App &app, int argc, char **argv, int failure_status,
                     const std::function<int()> &command);
