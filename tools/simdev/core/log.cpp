// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/log.h"

#include <array>
#include <cerrno>

#include "tools/simdev/core/clock.h"

namespace {

struct {
    sim_sink sink;
    void *argument;
    uint64_t count;
    std::array<int64_t, op_count> counts; // by kind
    int busy_fd = -1;                     // whose traffic is pending
    sim_operation traffic;
} state;

void hand_out(sim_operation *operation)
{
    const int saved = errno;
    operation->n = ++state.count;
    operation->virtual_us = clock_virtual_us();
    operation->real_us = clock_real_us();
    if (state.sink != nullptr)
        state.sink(state.argument, operation);
    errno = saved;
}

} // namespace

void log_start(sim_sink sink, void *argument)
{
    state = {sink, argument, 0, {}, -1, {}};
}

void log_pending()
{
    if (state.busy_fd < 0)
        return;
    state.busy_fd = -1;
    hand_out(&state.traffic);
}

sim_operation count_operation(sim_op op, const char *target)
{
    sim_operation operation = make_operation(op, target);
    operation.number = ++state.counts[op];
    return operation;
}

void log_operation(sim_operation *operation)
{
    log_pending();
    if (operation->result == sim_absent || operation->result >= 0)
        operation->error = 0;
    hand_out(operation);
}

int64_t log_result(sim_operation *operation, int64_t result, const sim_fault *fault)
{
    operation->result = result;
    operation->error = errno;
    operation->fault = fault_index(fault);
    log_operation(operation);
    return result;
}

void log_traffic(int fd, const char *target, int64_t received, int64_t sent, int fault)
{
    if (state.busy_fd != fd) {
        log_pending();
        state.traffic = make_operation(op_network, target);
        state.traffic.received = state.traffic.sent = state.traffic.calls = 0;
        state.busy_fd = fd;
    }
    state.traffic.received += received;
    state.traffic.sent += sent;
    state.traffic.calls++;
    if (fault >= 0)
        state.traffic.fault = fault;
}
