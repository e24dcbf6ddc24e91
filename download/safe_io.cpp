// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/safe_io.h"

#include <cerrno>
#include <cstdint>
#include <unistd.h>

ssize_t safe_read(int fd, void *buffer, size_t size)
{
    ssize_t result = 0;
    do { // ends with the first call that no signal interrupts
        result = read(fd, buffer, size);
    } while (result < 0 && errno == EINTR);
    return result;
}

ssize_t safe_write(int fd, const void *buffer, size_t size)
{
    ssize_t result = 0;
    do { // ends with the first call that no signal interrupts
        result = write(fd, buffer, size);
    } while (result < 0 && errno == EINTR);
    return result;
}

ssize_t full_read(int fd, void *buffer, size_t size)
{
    auto *position = static_cast<uint8_t *>(buffer);
    size_t done = 0;
    while (done < size) {
        const ssize_t result = safe_read(fd, position + done, size - done);
        if (result < 0)
            return result;
        if (result == 0)
            break;
        done += static_cast<size_t>(result);
    }
    return static_cast<ssize_t>(done);
}

ssize_t full_write(int fd, const void *buffer, size_t size)
{
    const auto *position = static_cast<const uint8_t *>(buffer);
    size_t done = 0;
    while (done < size) {
        const ssize_t result = safe_write(fd, position + done, size - done);
        if (result < 0)
            return result;
        done += static_cast<size_t>(result);
    }
    return static_cast<ssize_t>(done);
}
