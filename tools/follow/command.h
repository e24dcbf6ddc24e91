// SPDX-License-Identifier: GPL-2.0-or-later
//
// The command of --run.
#pragma once

#include <sys/types.h>

#include "tools/follow/tracker.h"

namespace follow {

/// Starts `command` with /bin/sh and the outcome in its environment: UPGRADE_OUTCOME,
/// UPGRADE_STATUS, UPGRADE_ERROR (empty without one), UPGRADE_ATTEMPT. No signal is blocked in it.
/// Returns its process, or -1 with errno.
pid_t start_command(const char *command, const tracker *state);

} // namespace follow
