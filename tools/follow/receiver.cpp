// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/receiver.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace follow {

namespace {

const sockaddr *generic(const sockaddr_un *address)
{
    return reinterpret_cast<const sockaddr *>(address);
}

// Removes a socket file that nobody listens on. Null, or why the path cannot be taken.
const char *clear_path(const sockaddr_un *address)
{
    struct stat status = {};
    if (lstat(address->sun_path, &status) != 0)
        return errno == ENOENT ? nullptr : strerror(errno);
    if (!S_ISSOCK(status.st_mode))
        return "is there and no socket";
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (probe < 0)
        return strerror(errno);
    const bool refused =
        connect(probe, generic(address), sizeof *address) != 0 && errno == ECONNREFUSED;
    close(probe);
    if (!refused)
        return "another program listens there";
    return unlink(address->sun_path) == 0 || errno == ENOENT ? nullptr : strerror(errno);
}

} // namespace

bool receiver_open(receiver *socket, const char *path, mode_t mode, text_buffer *error)
{
    *socket = {};
    socket->fd = -1;
    socket->address.sun_family = AF_UNIX;
    static_assert(sizeof socket->address.sun_path == 108);
    const char *refusal = "a socket's path has 1 to 107 bytes";
    if (path[0] != '\0' && strlen(path) < sizeof socket->address.sun_path) {
        memcpy(socket->address.sun_path, path, strlen(path));
        refusal = clear_path(&socket->address);
    }
    if (refusal == nullptr) {
        socket->fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        // Made closed to all others, so that nobody sends before the mode is set.
        const mode_t mask = umask(0177);
        struct stat status = {};
        if (socket->fd < 0 ||
            bind(socket->fd, generic(&socket->address), sizeof socket->address) != 0 ||
            chmod(path, mode) != 0 || lstat(path, &status) != 0)
            refusal = strerror(errno);
        umask(mask);
        socket->device = status.st_dev;
        socket->inode = status.st_ino;
    }
    if (refusal == nullptr)
        return true;
    append_format(error, "%.200s: %s", path, refusal);
    if (socket->fd >= 0)
        close(socket->fd);
    return false;
}

ssize_t receiver_take(const receiver *socket, char *data)
{
    return recv(socket->fd, data, datagram_room, MSG_DONTWAIT | MSG_TRUNC);
}

void receiver_close(const receiver *socket)
{
    struct stat status = {};
    if (lstat(socket->address.sun_path, &status) == 0 && status.st_dev == socket->device &&
        status.st_ino == socket->inode)
        unlink(socket->address.sun_path);
    close(socket->fd);
}

} // namespace follow
