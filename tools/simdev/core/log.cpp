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
} log_state;

void hand_out(sim_operation *operation)
{
    const int saved = errno;
    operation->n = ++log_state.count;
    operation->virtual_us = clock_virtual_us();
    operation->real_us = clock_real_us();
    if (log_state.sink != nullptr)
        log_state.sink(log_state.argument, operation);
    errno = saved;
}

} // namespace

void log_start(sim_sink sink, void *argument)
{
    log_state = {sink, argument, 0, {}, -1, {}};
}

void log_pending()
{
    if (log_state.busy_fd < 0)
        return;
    log_state.busy_fd = -1;
    hand_out(&log_state.traffic);
}

sim_operation count_operation(sim_op op, const char *target)
{
    sim_operation operation = make_operation(op, target);
    operation.number = ++log_state.counts[op];
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
    if (log_state.busy_fd != fd) {
        log_pending();
        log_state.traffic = make_operation(op_network, target);
        log_state.traffic.received = log_state.traffic.sent = log_state.traffic.calls = 0;
        log_state.busy_fd = fd;
    }
    log_state.traffic.received += received;
    log_state.traffic.sent += sent;
    log_state.traffic.calls++;
    if (fault >= 0)
        log_state.traffic.fault = fault;
}
