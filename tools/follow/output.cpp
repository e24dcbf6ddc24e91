// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace follow {

void output_start(output *out, int fd)
{
    out->fd = fd;
    out->failed = out->is_socket = false;
    out->size = out->sent = 0;
    struct stat status = {};
    if (fstat(fd, &status) != 0)
        return; // the first write says why
    out->is_socket = S_ISSOCK(status.st_mode);
    if (S_ISREG(status.st_mode) || out->is_socket)
        return; // does not wait; a second opening would have a place of its own in the file
    char name[32];
    snprintf(name, sizeof name, "/proc/self/fd/%d", fd);
    const int again = open(name, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (again >= 0)
        out->fd = again;
}

bool output_has_room(const output *out, size_t size)
{
    return out->data.size() - (out->size - out->sent) >= size;
}

void output_add(output *out, const text_buffer *text)
{
    if (out->sent > 0) {
        memmove(out->data.data(), out->data.data() + out->sent, out->size - out->sent);
        out->size -= out->sent;
        out->sent = 0;
    }
    memcpy(out->data.data() + out->size, text->data, text->size);
    out->size += text->size;
}

void output_flush(output *out, int wait_ms)
{
    while (output_pending(out) && !out->failed) { // ends when all is written or nothing can be
        const char *data = out->data.data() + out->sent;
        const size_t size = out->size - out->sent;
        const ssize_t sent = out->is_socket ? send(out->fd, data, size, MSG_DONTWAIT | MSG_NOSIGNAL)
                                            : write(out->fd, data, size);
        if (sent > 0) {
            out->sent += static_cast<size_t>(sent);
        } else if (errno == EAGAIN) {
            pollfd ready = {out->fd, POLLOUT, 0};
            if (wait_ms == 0 || poll(&ready, 1, wait_ms) == 0)
                return;
        } else if (errno != EINTR) {
            out->failed = true;
            out->error = errno;
        }
    }
}

bool output_pending(const output *out)
{
    return !out->failed && out->sent < out->size;
}

} // namespace follow
