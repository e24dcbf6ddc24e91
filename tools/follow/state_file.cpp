// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/state_file.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

namespace follow {

bool replace_file(const char *path, const text_buffer *text, bool lasting)
{
    char beside[PATH_MAX];
    const int length = snprintf(beside, sizeof beside, "%s.new", path);
    if (length < 0 || static_cast<size_t>(length) >= sizeof beside) {
        errno = ENAMETOOLONG;
        return false;
    }
    const int fd = open(beside, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    char newline = '\n';
    const iovec pieces[] = {{text->data, text->size}, {&newline, 1}};
    const ssize_t written = writev(fd, pieces, 2);
    int reason = 0;
    if (written != static_cast<ssize_t>(text->size + 1))
        reason = written < 0 ? errno : ENOSPC;
    if (reason == 0 && lasting && fsync(fd) != 0)
        reason = errno;
    if (close(fd) != 0 && reason == 0)
        reason = errno;
    if (reason == 0 && rename(beside, path) != 0)
        reason = errno;
    if (reason == 0)
        return true;
    unlink(beside);
    errno = reason;
    return false;
}

} // namespace follow
