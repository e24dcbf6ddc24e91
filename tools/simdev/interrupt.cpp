// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/interrupt.h"

namespace simdev {

namespace {

volatile sig_atomic_t interrupted = 0;

} // namespace

void catch_interrupts()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { interrupted = 1; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool is_interrupted()
{
    return interrupted != 0;
}

} // namespace simdev
