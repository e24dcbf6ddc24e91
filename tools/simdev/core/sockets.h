// SPDX-License-Identifier: GPL-2.0-or-later
//
// Network connections: real sockets, to where the device's addresses are on this machine. The sim_
// functions have the contracts of the calls that they are named for.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include "tools/simdev/core/descriptors.h"

int sim_socket(int domain, int type, int protocol);
int sim_connect(int fd, const sockaddr *address, socklen_t size);
ssize_t sim_sendto(int fd, const void *data, size_t size, int flags, const sockaddr *address,
                   socklen_t address_size);
ssize_t sim_recvfrom(int fd, void *buffer, size_t size, int flags, sockaddr *address,
                     socklen_t *address_size);
int sim_setsockopt(int fd, int level, int name, const void *value, socklen_t size);

/// `read` and `write` on a TCP connection.
ssize_t read_connection(int fd, slot *connection, void *buffer, size_t size);
ssize_t write_connection(int fd, slot *connection, const void *data, size_t size);
