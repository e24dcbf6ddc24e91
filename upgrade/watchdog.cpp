// SPDX-License-Identifier: GPL-2.0-or-later
#include "upgrade/watchdog.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/syscfg.h"

namespace {

constexpr unsigned long gpio_request_watchdog = 1;

// `atoi`, which leaves out what happens beyond the range: saturated at 32 bits.
int32_t saturated_number(const char *text)
{
    const long long value = strtoll(text, nullptr, 10);
    if (value > INT32_MAX)
        return INT32_MAX;
    return value < INT32_MIN ? INT32_MIN : static_cast<int32_t>(value);
}

} // namespace

void read_watchdog_setting(watchdog_record *record)
{
    *record = {};
    record->line = -1;
    const char *line = getsyscfg("WD");
    if (line != nullptr)
        record->line = saturated_number(line);
}

void kick_watchdog(watchdog_record *record)
{
    const int fd = open("/dev/gpio", O_RDWR);
    if (ioctl(fd, gpio_request_watchdog, record) < 0)
        fprintf(stderr, "reset watchdog error: %s\n", strerror(errno));
    record->level = record->level == 0 ? 1 : 0;
    close(fd);
}
