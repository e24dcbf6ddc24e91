// SPDX-License-Identifier: GPL-2.0-or-later
//
// `gpio SECONDS LOG`: /dev/gpio of the emulated board, with the watchdog behind it.
//
// A character device in user space: request 1 takes the 8-byte watchdog record. A kick whose line
// is the watchdog's and whose level differs from the last one's feeds the board's hardware
// watchdog, which resets the board after SECONDS without one (0: it stays off). It runs from the
// start of this program until SIGTERM. Every kick is a line in LOG: seconds since boot, line,
// level, and "fed" or "ignored".
#define FUSE_USE_VERSION 31
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fuse3/cuse_lowlevel.h>
#include <linux/watchdog.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/device.h"

namespace {

constexpr int32_t watchdog_line = 17;

// What a callback knows is what is here: the library hands it nothing else.
struct {
    FILE *log;
    int watchdog = -1;
    int last_level = -1;
} board;

double seconds_since_boot()
{
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void take_kick(const watchdog_record *record)
{
    const bool feeds = record->line == watchdog_line && record->level != board.last_level;
    if (feeds) {
        board.last_level = record->level;
        if (board.watchdog >= 0)
            ioctl(board.watchdog, WDIOC_KEEPALIVE, 0);
    }
    fprintf(board.log, "%.3f %d %d %s\n", seconds_since_boot(), record->line, record->level,
            feeds ? "fed" : "ignored");
    fflush(board.log);
}

void open_device(fuse_req_t request, fuse_file_info *file)
{
    fuse_reply_open(request, file);
}

void control_device(fuse_req_t request, int command, void *argument, fuse_file_info * /*file*/,
                    unsigned /*flags*/, const void *input, size_t input_size,
                    size_t /*output_size*/)
{
    watchdog_record record = {};
    if (static_cast<unsigned>(command) != gpio_request_watchdog) {
        fuse_reply_err(request, ENOTTY);
    } else if (input_size < sizeof record) {
        // The number does not say how much there is to read: asked again with the record's size.
        const iovec wanted = {.iov_base = argument, .iov_len = sizeof record};
        fuse_reply_ioctl_retry(request, &wanted, 1, nullptr, 0);
    } else {
        memcpy(&record, input, sizeof record);
        take_kick(&record);
        fuse_reply_ioctl(request, 0, nullptr, 0);
    }
}

bool start_watchdog(int seconds)
{
    board.watchdog = open("/dev/watchdog", O_WRONLY | O_CLOEXEC);
    return board.watchdog >= 0 && ioctl(board.watchdog, WDIOC_SETTIMEOUT, &seconds) == 0;
}

void stop_watchdog()
{
    if (board.watchdog >= 0 && write(board.watchdog, "V", 1) == 1)
        close(board.watchdog);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "usage: gpio SECONDS LOG\n");
        return 2;
    }
    board.log = fopen(argv[2], "ae");
    const int seconds = atoi(argv[1]);
    if (board.log == nullptr || (seconds > 0 && !start_watchdog(seconds))) {
        perror("gpio");
        return 1;
    }
    const char *device[] = {"DEVNAME=gpio"};
    cuse_info info = {};
    info.dev_info_argc = 1;
    info.dev_info_argv = device;
    info.flags = CUSE_UNRESTRICTED_IOCTL;
    cuse_lowlevel_ops operations = {};
    operations.open = open_device;
    operations.ioctl = control_device;
    char *arguments[] = {argv[0], const_cast<char *>("-f"), const_cast<char *>("-s"), nullptr};
    const int status = cuse_lowlevel_main(3, arguments, &info, &operations, nullptr);
    stop_watchdog();
    return status;
}
