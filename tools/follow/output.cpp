// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/output.h"

#include <algorithm>
#include <cerrno>
#include <climits>
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
    out->is_socket = false;
    out->error = 0;
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

bool output_add(output *out, std::string_view text)
{
    if (out->data.size() - (out->size - out->sent) < text.size())
        output_flush(out, 0);
    if (out->data.size() - (out->size - out->sent) < text.size())
        return false;
    memmove(out->data.data(), out->data.data() + out->sent, out->size - out->sent);
    out->size -= out->sent;
    out->sent = 0;
    std::copy(text.begin(), text.end(), out->data.begin() + out->size);
    out->size += text.size();
    return true;
}

void output_flush(output *out, int wait_ms)
{
    while (output_pending(out)) { // ends when all is written or nothing can be
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
            out->error = errno;
        }
    }
}

bool output_pending(const output *out)
{
    return out->error == 0 && out->sent < out->size;
}

bool replace_file(const char *path, std::string_view text, bool lasting)
{
    char beside[PATH_MAX];
    if (snprintf(beside, sizeof beside, "%s.new", path) >= static_cast<int>(sizeof beside)) {
        errno = ENAMETOOLONG;
        return false;
    }
    const int fd = open(beside, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    errno = ENOSPC; // where a part is written; a call that fails has its own
    const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
                         (!lasting || fsync(fd) == 0);
    int reason = errno;
    if (close(fd) == 0 && written && rename(beside, path) == 0)
        return true;
    if (written)
        reason = errno; // of the other two
    unlink(beside);
    errno = reason;
    return false;
}

} // namespace follow
