// SPDX-License-Identifier: GPL-2.0-or-later
//
// The calls of the real system that the model needs, filled in by whichever face stands above it:
// the model never makes a call that a face takes over in any other way.
#pragma once

#include <cstdio>
#include <ctime>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>

struct sim_real {
    int (*open64)(const char *path, int flags, ...);
    FILE *(*fopen64)(const char *path, const char *mode);
    ssize_t (*read)(int fd, void *buffer, size_t size);
    ssize_t (*write)(int fd, const void *buffer, size_t size);
    off64_t (*lseek64)(int fd, off64_t offset, int whence);
    int (*close)(int fd);
    int (*ioctl)(int fd, unsigned long request, ...);
    int (*clock_nanosleep)(clockid_t clock, int flags, const timespec *time, timespec *rest);
    int (*select)(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout);
    int (*poll)(pollfd *fds, nfds_t count, int timeout_ms);
    int (*socket)(int domain, int type, int protocol);
    int (*connect)(int fd, const sockaddr *address, socklen_t size);
    ssize_t (*send)(int fd, const void *data, size_t size, int flags);
    ssize_t (*sendto)(int fd, const void *data, size_t size, int flags, const sockaddr *address,
                      socklen_t address_size);
    ssize_t (*recv)(int fd, void *buffer, size_t size, int flags);
    ssize_t (*recvfrom)(int fd, void *buffer, size_t size, int flags, sockaddr *address,
                        socklen_t *address_size);
    int (*setsockopt)(int fd, int level, int name, const void *value, socklen_t size);
    pid_t (*waitpid)(pid_t pid, int *status, int options);
};

/// Defined and filled by the face before the first call reaches the model.
extern sim_real real;
