// SPDX-License-Identifier: GPL-2.0-or-later
//
// The calls of the real system that the core needs: it never makes a call that a face takes over in
// any other way.
#pragma once

#include <cstdio>
#include <ctime>
// Musl's headers make open64, fopen64 and lseek64 macros of the plain names, which are for large
// files there: all of them come first, so that the members below are named alike everywhere.
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <unistd.h>

template<typename Request> Request request_of(int (*)(int, Request, ...));
/// What the C library has for the second parameter of `ioctl`: its kind of integer.
using ioctl_request = decltype(request_of(&::ioctl));

#ifdef _REDIR_TIME64
// Musl where `long` has 32 bits: its headers give calls with times to these symbols, which is what
// a linker sees. Here they are the names as well, for the face and the members below.
extern "C" {
decltype(clock_nanosleep) __clock_nanosleep_time64;
decltype(nanosleep) __nanosleep_time64;
decltype(select) __select_time64;
}
#define clock_nanosleep __clock_nanosleep_time64
#define nanosleep __nanosleep_time64
#define select __select_time64
#endif

struct sim_real {
    int (*open64)(const char *path, int flags, ...);
    FILE *(*fopen64)(const char *path, const char *mode);
    ssize_t (*read)(int fd, void *buffer, size_t size);
    ssize_t (*write)(int fd, const void *buffer, size_t size);
    off64_t (*lseek64)(int fd, off64_t offset, int whence);
    int (*close)(int fd);
    int (*ioctl)(int fd, ioctl_request request, ...);
    int (*clock_nanosleep)(clockid_t clock, int flags, const timespec *time, timespec *rest);
    int (*select)(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout);
    int (*poll)(pollfd *fds, nfds_t count, int timeout_ms);
    int (*socket)(int domain, int type, int protocol);
    int (*connect)(int fd, const sockaddr *address, socklen_t size);
    ssize_t (*sendto)(int fd, const void *data, size_t size, int flags, const sockaddr *address,
                      socklen_t address_size);
    ssize_t (*recvfrom)(int fd, void *buffer, size_t size, int flags, sockaddr *address,
                        socklen_t *address_size);
    int (*setsockopt)(int fd, int level, int name, const void *value, socklen_t size);
    hostent *(*gethostbyname)(const char *name);
    pid_t (*waitpid)(pid_t pid, int *status, int options);
};

/// A fuzzer puts its own functions in their place: without sim_start all that the face takes over
/// goes straight here.
extern sim_real real;

/// Fills it in with what lies behind the face. False when that was done before.
bool real_find();
