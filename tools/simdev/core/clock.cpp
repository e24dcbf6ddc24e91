// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/clock.h"

#include <cerrno>

#include "tools/simdev/core/real.h"

namespace {

constexpr int64_t second_us = 1'000'000;

struct {
    bool runs;
    bool fast;
    int64_t virtual_us;
    int64_t started_us;
} clock_state;

int64_t now_us()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return to_us(&now);
}

} // namespace

void clock_start(bool fast)
{
    clock_state = {true, fast, 0, now_us()};
}

void clock_stop()
{
    clock_state = {};
}

bool clock_runs()
{
    return clock_state.runs;
}

bool clock_is_fast()
{
    return clock_state.fast;
}

int64_t clock_virtual_us()
{
    return clock_state.virtual_us;
}

int64_t clock_real_us()
{
    return now_us() - clock_state.started_us;
}

void clock_pass(int64_t microseconds)
{
    clock_state.virtual_us += microseconds;
}

void wait_really(int64_t microseconds)
{
    timespec rest = to_timespec(microseconds);
    while (real.clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, &rest) == EINTR) {
        // goes on with what is left
    }
}

int64_t to_us(const timeval *time)
{
    return time->tv_sec * second_us + time->tv_usec;
}

int64_t to_us(const timespec *time)
{
    return time->tv_sec * second_us + (time->tv_nsec + 999) / 1000;
}

timeval to_timeval(int64_t microseconds)
{
    return {.tv_sec = static_cast<time_t>(microseconds / second_us),
            .tv_usec = static_cast<suseconds_t>(microseconds % second_us)};
}

timespec to_timespec(int64_t microseconds)
{
    return {.tv_sec = static_cast<time_t>(microseconds / second_us),
            .tv_nsec = static_cast<long>(microseconds % second_us * 1000)};
}
