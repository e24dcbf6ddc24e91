// SPDX-License-Identifier: GPL-2.0-or-later
//
// Running the script that stops networking.
#pragma once

/// Runs the executable file `path` without arguments and waits for it, however long it takes. The
/// child's process id, or a negative number when none was started or waited for. What the script
/// returned is not looked at.
int run_script(const char *path);
