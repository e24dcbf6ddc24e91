// SPDX-License-Identifier: GPL-2.0-or-later
//
// The socket that status datagrams come to.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <sys/un.h>

#include "tools/follow/json.h"

namespace follow {

/// A status datagram has at most 127 bytes. Of longer ones the beginning is kept.
constexpr size_t datagram_room = 256;

struct receiver {
    int fd;
    sockaddr_un address;
    dev_t device; ///< of the socket file, to know it again
    ino_t inode;
};

/// Binds `path` with the permissions `mode`, in place of a socket file that nobody listens on.
/// True, or false with one line without a newline in `error`: the path is too long, is no socket,
/// somebody listens there, or it cannot be bound.
bool receiver_open(receiver *socket, const char *path, mode_t mode, text_buffer *error);

/// Takes a datagram that has come, up to datagram_room bytes of it. Returns its whole size, which
/// may be more, or -1 when none is there.
ssize_t receiver_take(const receiver *socket, char *data);

/// Closes a receiver that was opened, and removes the socket file, unless it is another's by now.
void receiver_close(const receiver *socket);

} // namespace follow
