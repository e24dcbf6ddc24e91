// SPDX-License-Identifier: GPL-2.0-or-later
//
// The run's two clocks. Virtual time is the sum of all sleeps and of all waits that ended without
// an answer, so it is the same in every run; real time is this machine's.
#pragma once

#include <cstdint>
#include <ctime>
#include <sys/time.h>

/// Both clocks at 0; `fast` counts sleeps and unanswered waits instead of waiting.
void clock_start(bool fast);
void clock_stop();

/// Whether the simulation runs: else every call goes to the real system.
bool clock_runs();
bool clock_is_fast();

/// Microseconds since the start.
int64_t clock_virtual_us();
int64_t clock_real_us();

/// Moves virtual time on.
void clock_pass(int64_t microseconds);

/// Waits in real time, whatever signals come.
void wait_really(int64_t microseconds);

int64_t to_us(const timeval *time);
int64_t to_us(const timespec *time);
timeval to_timeval(int64_t microseconds);
timespec to_timespec(int64_t microseconds);
