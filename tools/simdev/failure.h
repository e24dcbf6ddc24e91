// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "tools/common/failure.h"

namespace simdev {

/// simdev's own exit status for every failure of its own; `upgrade` never ends with it.
constexpr int exit_own_failure = exit_runner_trouble;

} // namespace simdev
