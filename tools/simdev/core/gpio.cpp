// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/gpio.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/device.h"
#include "tools/simdev/core/faults.h"
#include "tools/simdev/core/log.h"
#include "tools/simdev/core/real.h"
#include "tools/simdev/core/watchdog.h"

namespace {

int64_t kicks;

} // namespace

void gpio_start()
{
    kicks = 0;
}

int sim_ioctl(int fd, unsigned long request, void *argument)
{
    slot *device = followed(fd);
    if (device == nullptr || device->kind != slot_gpio || request != gpio_request_watchdog)
        return real.ioctl(fd, static_cast<ioctl_request>(request), argument);
    watchdog_record record;
    memcpy(&record, argument, sizeof record);
    sim_operation operation = make_operation(op_kick, device->target);
    operation.number = ++kicks;
    operation.line = record.line;
    operation.level = record.level;
    operation.result = 0;
    const sim_fault *fault = find_fault(fault_gpio_refuse, kicks);
    if (fault != nullptr) {
        operation.fault = fault_index(fault);
        operation.result = -1;
        operation.error = EIO;
    } else if (record.line >= 0) {
        watchdog_feed();
    }
    log_operation(&operation);
    errno = operation.error;
    return static_cast<int>(operation.result);
}
