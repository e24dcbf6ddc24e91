// SPDX-License-Identifier: GPL-2.0-or-later
//
// The network-stop script: the file of its name in the device folder, in a process of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

/// `folder` is the device folder, `duration_us` the script's virtual duration. The environment of
/// now, without what makes the program simulated, is the script's. 0, or -1 with a line in `error`.
int script_start(const char *folder, int64_t duration_us, char *error, size_t error_size);

/// Contract of waitpid.
pid_t sim_waitpid(pid_t pid, int *status, int options);

/// Contract of execv. Runs in a child after vfork: touches no memory but the stack.
int sim_execv(const char *path, char *const *arguments);
