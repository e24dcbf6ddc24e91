// SPDX-License-Identifier: GPL-2.0-or-later
//
// SIGINT and SIGTERM: each command ends with what was done so far.
#pragma once

#include <csignal>

namespace simdev {

constexpr int exit_interrupted = 128 + SIGINT;

/// From now on the first of these signals is only noted; later ones end simdev at once.
void catch_interrupts();
bool is_interrupted();

} // namespace simdev
