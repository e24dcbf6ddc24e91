// SPDX-License-Identifier: GPL-2.0-or-later
//
// The network-stop script: the file of its name in the device folder, in a process of its own.
#pragma once

#include <cstdint>
#include <sys/types.h>

/// `duration_us` is the script's virtual duration. The environment of now, without what makes the
/// program simulated, is the script's. To be called behind files_start.
void script_start(int64_t duration_us);

/// Contract of waitpid.
pid_t sim_waitpid(pid_t pid, int *status, int options);

/// Contract of execv. Runs in a child after vfork: touches no memory but the stack.
int sim_execv(const char *path, char *const *arguments);
