// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/extra_connect.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>

namespace {

/// The result of a connect that is under way: that of the poll, or -1.
int poll_connect(int socket, int timeout_seconds, bool *restore_flags)
{
    pollfd entry = {.fd = socket, .events = POLLIN | POLLOUT, .revents = 0};
    const int milliseconds =
        static_cast<int>(std::min<int64_t>(int64_t{timeout_seconds} * 1000, INT32_MAX));
    int result = 0;
    do { // each turn is one signal
        result = poll(&entry, 1, milliseconds);
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        *restore_flags = false; // kept: only a poll that works leaves the flags restored
        return -1;
    }
    // A server that speaks first makes a new connection readable: kept as a failure, like POLLERR.
    return (entry.revents & (POLLIN | POLLERR)) != 0 ? -1 : result;
}

} // namespace

int timed_connect(int socket, const sockaddr *address, socklen_t address_length,
                  int timeout_seconds)
{
    const int flags = fcntl(socket, F_GETFL);
    if (flags < 0)
        return -1;
    if ((flags & O_NONBLOCK) == 0 && fcntl(socket, F_SETFL, flags | O_NONBLOCK) < 0)
        return -1;
    // Kept: a connect that succeeds at once leaves 0, which the caller takes for a failure.
    int result = connect(socket, address, address_length);
    if (result < 0 && errno == EINPROGRESS) {
        bool restore_flags = true;
        result = poll_connect(socket, timeout_seconds, &restore_flags);
        if (!restore_flags)
            return result;
    }
    if ((flags & O_NONBLOCK) == 0)
        fcntl(socket, F_SETFL, flags);
    fprintf(stderr, "timed_connect(): %d\n", result);
    return result;
}
