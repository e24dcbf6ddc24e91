// SPDX-License-Identifier: GPL-2.0-or-later
//
// What a program owes its standard descriptors before it opens anything else.
#pragma once

#include <fcntl.h>
#include <unistd.h>

/// Opens those of the descriptors 0 to 2 that are closed on /dev/null. Otherwise the next file that
/// is opened, a flash partition for instance, gets their number, and what is printed is written
/// into it.
inline void open_standard_descriptors()
{
    int fd = 0;
    do { // at most three descriptors below 3 are free
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd > STDERR_FILENO)
        close(fd);
}
