// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/waits.h"

#include <cerrno>

#include "tools/simdev/core/clock.h"
#include "tools/simdev/core/log.h"
#include "tools/simdev/core/peer.h"
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

int sim_select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout)
{
    if (!clock_runs())
        return real.select(count, read, write, except, timeout);
    const int64_t whole = timeout == nullptr ? -1 : to_us(timeout);
    waited_for waited;
    for (int fd = 0; fd < count && read != nullptr; fd++)
        if (FD_ISSET(fd, read) && followed(fd) != nullptr)
            waited.add(followed(fd));
    int ready = 0;
    if (write != nullptr || sit_out_silence(&waited, whole)) {
        const int64_t most = real_wait_us(whole);
        timeval limit = to_timeval(most);
        ready = real.select(count, read, write, except, most < 0 ? nullptr : &limit);
        advance(0);
        if (ready == 0 && whole > 0)
            wait_in_vain(waited.connection, whole, false, nullptr);
    } else {
        for (fd_set *set : {read, write, except})
            if (set != nullptr)
                FD_ZERO(set);
    }
    if (ready == 0 && timeout != nullptr)
        *timeout = {};
    return ready;
}

int sim_poll(pollfd *fds, nfds_t count, int timeout_ms)
{
    if (!clock_runs())
        return real.poll(fds, count, timeout_ms);
    const int64_t whole = timeout_ms < 0 ? -1 : timeout_ms * INT64_C(1000);
    waited_for waited;
    bool only_reads = true;
    for (nfds_t index = 0; index < count; index++) {
        const slot *connection = followed(fds[index].fd);
        only_reads = only_reads && connection != nullptr && (fds[index].events & POLLOUT) == 0;
        if (connection != nullptr)
            waited.add(connection);
    }
    if (only_reads && !sit_out_silence(&waited, whole)) {
        for (nfds_t index = 0; index < count; index++)
            fds[index].revents = 0;
        return 0;
    }
    const int64_t limit = real_wait_us(whole);
    const int ready =
        real.poll(fds, count, limit < 0 ? -1 : static_cast<int>((limit + 999) / 1000));
    advance(0);
    if (ready == 0 && whole > 0)
        wait_in_vain(waited.connection, whole, false, nullptr);
    return ready;
}
