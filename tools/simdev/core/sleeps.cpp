// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/sleeps.h"

#include <cerrno>

#include "tools/simdev/core/clock.h"
#include "tools/simdev/core/log.h"
#include "tools/simdev/core/real.h"
#include "tools/simdev/core/watchdog.h"

int sim_clock_nanosleep(clockid_t clock, int flags, const timespec *time, timespec *rest)
{
    if (!clock_runs() || flags != 0)
        return real.clock_nanosleep(clock, flags, time, rest);
    // The program lets no signal interrupt it.
    const int result = clock_is_fast() ? 0 : real.clock_nanosleep(clock, 0, time, rest);
    sim_operation operation = make_operation(op_sleep, nullptr);
    operation.duration_us = to_us(time);
    advance(operation.duration_us);
    log_operation(&operation);
    return result;
}

int sim_nanosleep(const timespec *time, timespec *rest)
{
    const int result = sim_clock_nanosleep(CLOCK_REALTIME, 0, time, rest);
    if (result == 0)
        return 0;
    errno = result;
    return -1;
}
