// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/peer.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>

#include "tools/simdev/core/clock.h"
#include "tools/simdev/core/log.h"
#include "tools/simdev/core/watchdog.h"

namespace {

int64_t grace_us;

} // namespace

void peer_start(int64_t microseconds)
{
    grace_us = microseconds;
}

void wait_in_vain(const slot *connection, int64_t microseconds, bool really, const sim_fault *fault)
{
    const int saved = errno;
    (really ? spend : advance)(microseconds);
    sim_operation operation =
        make_operation(op_wait, connection == nullptr ? nullptr : connection->target);
    operation.duration_us = microseconds;
    operation.fault = fault_index(fault);
    log_operation(&operation);
    errno = saved;
}

peer look_at_peer(const slot *connection)
{
    peer result = {INT64_MAX, 0, false, nullptr};
    if (connection->kind != slot_tcp && connection->kind != slot_udp)
        return result;
    for (const sim_fault &fault : given_faults()) {
        if (fault.kind == fault_server_stall || fault.kind == fault_server_cut) {
            const int64_t left = std::max<int64_t>(fault.at - connection->received, 0);
            result.bytes = std::min(result.bytes, left);
            // A datagram has no connection to end, so its server just goes silent.
            if (left == 0 && fault.kind == fault_server_cut && connection->kind == slot_tcp)
                result.ended = true;
            else if (left == 0)
                result.silence_us = never_us;
        } else if (fault.kind == fault_server_drip) {
            result.bytes = std::min(result.bytes, fault.bytes < 0 ? 1 : fault.bytes);
            result.silence_us =
                std::max(result.silence_us, connection->drips_at_us - clock_virtual_us());
        } else {
            continue;
        }
        result.fault = &fault;
    }
    return result;
}

void note_drip(slot *connection)
{
    const sim_fault *fault = find_fault(fault_server_drip);
    if (fault != nullptr)
        connection->drips_at_us = clock_virtual_us() + fault->seconds * 1'000'000;
}

bool outlast(const slot *connection, const peer *seen, int64_t timeout_us)
{
    if (seen->silence_us == 0)
        return true;
    if (timeout_us == 0 && seen->silence_us == never_us)
        hang(fault_index(seen->fault));
    const bool enough = timeout_us == 0 || seen->silence_us <= timeout_us;
    wait_in_vain(connection, enough ? seen->silence_us : timeout_us, true, seen->fault);
    return enough;
}

void waited_for::add(const slot *candidate)
{
    const peer found = look_at_peer(candidate);
    if (connection == nullptr || found.silence_us < quiet.silence_us)
        quiet = found;
    connection = connection == nullptr ? candidate : connection;
}

int64_t real_wait_us(int64_t timeout_us)
{
    const int64_t limit = clock_is_fast() ? grace_us : watchdog_left_us();
    if (timeout_us < 0)
        return clock_is_fast() || limit == INT64_MAX ? -1 : limit;
    return std::min(timeout_us, limit);
}

bool sit_out_silence(const waited_for *waited, int64_t timeout_us)
{
    if (waited->connection == nullptr || waited->quiet.silence_us == 0)
        return true;
    if (timeout_us == 0) // outlast would take it for a wait without end
        return false;
    return outlast(waited->connection, &waited->quiet, timeout_us < 0 ? 0 : timeout_us);
}

bool does_not_block(int fd, int flags)
{
    return (flags & MSG_DONTWAIT) != 0 || (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0;
}
