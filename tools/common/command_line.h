// SPDX-License-Identifier: GPL-2.0-or-later
//
// How the host tools run a command and report what ends it: one line on standard error, with the
// program's name in front.
#pragma once

#include <functional>

#include "tools/common/failure.h"

namespace CLI {
class App;
}

/// Parses the command line (a word that it does not know is named, and the near one suggested),
/// runs `command` and flushes standard output. Returns the exit status: that of `command` or of the
/// failure that it threw; 0 where the user asked for help; `trouble_status` in the place of
/// exit_trouble, and for a wrong command line, output that cannot be written, and whatever else is
/// thrown.
int run_command_line(CLI::App &app, int argc, char **argv, int trouble_status,
                     const std::function<int()> &command);
