// SPDX-License-Identifier: GPL-2.0-or-later
#include "upgrade/watchdog.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/device.h"
#include "platform/number.h"
#include "platform/syscfg.h"

void read_watchdog_setting(watchdog_record *record)
{
    *record = {};
    record->line = -1;
    const char *line = getsyscfg("WD");
    if (line != nullptr)
        record->line = number_from_text(line, 10, nullptr);
}

void kick_watchdog(watchdog_record *record)
{
    const int fd = open(gpio_device, O_RDWR);
    if (ioctl(fd, gpio_request_watchdog, record) < 0)
        fprintf(stderr, "reset watchdog error: %s\n", strerror(errno));
    record->level = record->level == 0 ? 1 : 0;
    close(fd);
}
