// SPDX-License-Identifier: GPL-2.0-or-later
//
// The program's own sleeps: counted in virtual time, and in fast mode not slept. Each function has
// the contract of the call that it is named for.
#pragma once

#include <ctime>

int sim_nanosleep(const timespec *time, timespec *rest);
int sim_clock_nanosleep(clockid_t clock, int flags, const timespec *time, timespec *rest);
