// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/watchdog.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/device.h"
#include "tools/simdev/core/clock.h"
#include "tools/simdev/core/descriptors.h"
#include "tools/simdev/core/log.h"
#include "tools/simdev/core/real.h"

namespace {

constexpr int64_t day_us = INT64_C(86'400'000'000);

struct {
    const sim_fault *fault; // null: none
    int64_t fed_virtual_us;
    int64_t fed_real_us;
} watchdog_state;

[[noreturn]] void end_program(sim_end status, sim_op op, int fault)
{
    sim_operation operation = make_operation(op, nullptr);
    operation.fault = fault;
    operation.result = status;
    log_operation(&operation);
    syscall(SYS_exit_group, status); // nothing is flushed and no handler runs: the power is gone
    abort();
}

int64_t timeout_us()
{
    return watchdog_state.fault->seconds * 1'000'000;
}

} // namespace

void watchdog_start()
{
    watchdog_state = {find_fault(fault_watchdog), 0, 0};
}

int sim_ioctl(int fd, unsigned long request, void *argument)
{
    const slot *device = followed(fd);
    if (device == nullptr || device->kind != slot_gpio || request != gpio_request_watchdog)
        return real.ioctl(fd, static_cast<ioctl_request>(request), argument);
    watchdog_record record;
    memcpy(&record, argument, sizeof record);
    sim_operation operation = count_operation(op_kick, device->target);
    operation.line = record.line;
    operation.level = record.level;
    const sim_fault *fault = find_fault(fault_gpio_refuse, operation.number);
    if (fault == nullptr && record.line >= 0)
        watchdog_state = {watchdog_state.fault, clock_virtual_us(), clock_real_us()};
    errno = fault == nullptr ? 0 : EIO;
    return static_cast<int>(log_result(&operation, fault == nullptr ? 0 : -1, fault));
}

int64_t watchdog_left_us()
{
    if (watchdog_state.fault == nullptr || clock_is_fast())
        return INT64_MAX;
    return std::max<int64_t>(timeout_us() - (clock_real_us() - watchdog_state.fed_real_us), 0);
}

void advance(int64_t microseconds)
{
    if (microseconds > 0)
        log_pending(); // it happened before
    clock_pass(microseconds);
    if (watchdog_state.fault != nullptr) {
        const int64_t beyond = clock_virtual_us() - watchdog_state.fed_virtual_us - timeout_us();
        if (beyond > 0)
            clock_pass(-beyond);
        if (beyond > 0 || watchdog_left_us() == 0)
            end_program(sim_end_reset, op_reset, fault_index(watchdog_state.fault));
    }
    if (clock_virtual_us() > day_us)
        end_program(sim_end_hang, op_hang, -1);
}

void spend(int64_t microseconds)
{
    if (!clock_is_fast())
        wait_really(std::min(microseconds, watchdog_left_us()));
    advance(microseconds);
}

void hang(int fault)
{
    if (watchdog_state.fault != nullptr)
        advance(timeout_us() + 1);
    end_program(sim_end_hang, op_hang, fault);
}

void cut_power(int fault)
{
    end_program(sim_end_power_cut, op_power_cut, fault);
}
