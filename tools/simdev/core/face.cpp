// SPDX-License-Identifier: GPL-2.0-or-later
//
// The face of the model: the C library's names, each handed to the model's function.
//
// Compiled twice. As a preloaded library it defines the names themselves and finds the real ones
// behind it; with SIMDEV_WRAP it defines the names that the linker's --wrap puts in their place.
// The list of names for the linker is in CMakeLists.txt; a name belongs in both lists.
//
// Large-file flags turn open into open64, and _FORTIFY_SOURCE read into __read_chk: a name that is
// missing here reaches the real system.
#undef _FORTIFY_SOURCE   // the inline bodies of the very functions that are defined here
#undef _FILE_OFFSET_BITS // renames open to open64, and so on
// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's
#define _FORTIFY_SOURCE 0

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

#include "tools/simdev/core/clock.h"
#include "tools/simdev/core/files.h"
#include "tools/simdev/core/network.h"
#include "tools/simdev/core/partitions.h"
#include "tools/simdev/core/real.h"
#include "tools/simdev/core/script.h"
#include "tools/simdev/core/sim.h"
#include "tools/simdev/core/sockets.h"
#include "tools/simdev/core/waits.h"
#include "tools/simdev/core/watchdog.h"

#ifdef SIMDEV_WRAP
#define FACE(name) __wrap_##name
#else
#define FACE(name) name
#endif

#ifdef SIMDEV_WRAP
// What simdev looks for in a program's file to know that it needs no preloaded library.
extern "C" [[gnu::used]] const char simdev_face_mark[] = "simdev: the platform is wrapped";
#endif

namespace {

// Before the program runs, or with the first call of a library that is set up earlier.
[[gnu::constructor]] void start()
{
    if (real_find())
        sim_start_from_environment();
}

/// `size`, unless the fortified call would have ended the program.
size_t checked(size_t size, size_t capacity)
{
    if (size > capacity)
        abort();
    return size;
}

int open_with_mode(const char *path, int flags, va_list arguments)
{
    start();
    // Only with one of these flags is there a mode to be read.
    const bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return sim_open(path, flags, creates ? va_arg(arguments, mode_t) : 0);
}

int sleep_us(useconds_t microseconds)
{
    const timespec time = to_timespec(microseconds);
    return sim_nanosleep(&time, nullptr);
}

unsigned sleep_seconds(unsigned seconds)
{
    const timespec time = {static_cast<time_t>(seconds), 0};
    timespec rest = {};
    // A sleep that a signal ends tells the seconds that are left.
    return sim_nanosleep(&time, &rest) == 0 ? 0 : static_cast<unsigned>(rest.tv_sec);
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's names
extern "C" {

#define OPEN(name)                                                                                 \
    int FACE(name)(const char *path, int flags, ...);                                              \
    int FACE(name)(const char *path, int flags, ...)                                               \
    {                                                                                              \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const int fd = open_with_mode(path, flags, arguments);                                     \
        va_end(arguments);                                                                         \
        return fd;                                                                                 \
    }
OPEN(open)
#ifndef open64
OPEN(open64)
#endif

// A row: the call's result, name, parameters and specifiers, and what it comes to.
#define CALL(result, name, parameters, specifiers, ...)                                            \
    result FACE(name)                                                                              \
    parameters specifiers;                                                                         \
    result FACE(name)                                                                              \
    parameters specifiers                                                                          \
    {                                                                                              \
        start();                                                                                   \
        return __VA_ARGS__;                                                                        \
    }

CALL(int, __open_2, (const char *path, int flags), , sim_open(path, flags, 0))
CALL(int, __open64_2, (const char *path, int flags), , sim_open(path, flags, 0))
CALL(FILE *, fopen, (const char *path, const char *mode), , sim_fopen(path, mode))
#ifndef fopen64
CALL(FILE *, fopen64, (const char *path, const char *mode), , sim_fopen(path, mode))
#endif
CALL(ssize_t, read, (int fd, void *buffer, size_t size), , sim_read(fd, buffer, size))
CALL(ssize_t, __read_chk, (int fd, void *buffer, size_t size, size_t capacity), ,
     sim_read(fd, buffer, checked(size, capacity)))
CALL(ssize_t, write, (int fd, const void *buffer, size_t size), , sim_write(fd, buffer, size))
CALL(off_t, lseek, (int fd, off_t offset, int whence), noexcept,
     static_cast<off_t>(sim_lseek(fd, offset, whence)))
#ifndef lseek64
CALL(off64_t, lseek64, (int fd, off64_t offset, int whence), noexcept,
     sim_lseek(fd, offset, whence))
#endif
CALL(int, close, (int fd), , sim_close(fd))
CALL(void, sync, (), noexcept, sim_sync())
CALL(int, usleep, (useconds_t microseconds), , sleep_us(microseconds))
CALL(unsigned, sleep, (unsigned seconds), , sleep_seconds(seconds))
CALL(int, nanosleep, (const timespec *time, timespec *rest), , sim_nanosleep(time, rest))
CALL(int, clock_nanosleep, (clockid_t clock, int flags, const timespec *time, timespec *rest), ,
     sim_clock_nanosleep(clock, flags, time, rest))
CALL(int, select, (int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout), ,
     sim_select(count, read, write, except, timeout))
CALL(int, poll, (pollfd * fds, nfds_t count, int timeout_ms), , sim_poll(fds, count, timeout_ms))
CALL(int, __poll_chk, (pollfd * fds, nfds_t count, int timeout_ms, size_t capacity), ,
     sim_poll(fds, checked(count, capacity / sizeof(pollfd)), timeout_ms))
CALL(int, socket, (int domain, int type, int protocol), noexcept,
     sim_socket(domain, type, protocol))
CALL(int, connect, (int fd, const sockaddr *address, socklen_t size), ,
     sim_connect(fd, address, size))
CALL(ssize_t, send, (int fd, const void *data, size_t size, int flags), ,
     sim_sendto(fd, data, size, flags, nullptr, 0))
CALL(ssize_t, sendto,
     (int fd, const void *data, size_t size, int flags, const sockaddr *address,
      socklen_t address_size),
     , sim_sendto(fd, data, size, flags, address, address_size))
CALL(ssize_t, recv, (int fd, void *buffer, size_t size, int flags), ,
     sim_recvfrom(fd, buffer, size, flags, nullptr, nullptr))
CALL(ssize_t, __recv_chk, (int fd, void *buffer, size_t size, size_t capacity, int flags), ,
     sim_recvfrom(fd, buffer, checked(size, capacity), flags, nullptr, nullptr))
CALL(ssize_t, recvfrom,
     (int fd, void *buffer, size_t size, int flags, sockaddr *address, socklen_t *address_size), ,
     sim_recvfrom(fd, buffer, size, flags, address, address_size))
CALL(ssize_t, __recvfrom_chk,
     (int fd, void *buffer, size_t size, size_t capacity, int flags, sockaddr *address,
      socklen_t *address_size),
     , sim_recvfrom(fd, buffer, checked(size, capacity), flags, address, address_size))
CALL(int, setsockopt, (int fd, int level, int name, const void *value, socklen_t size), noexcept,
     sim_setsockopt(fd, level, name, value, size))
CALL(hostent *, gethostbyname, (const char *name), , sim_gethostbyname(name))
CALL(pid_t, waitpid, (pid_t pid, int *status, int options), , sim_waitpid(pid, status, options))
// Mostly in a child after vfork, where everything is set up.
CALL(int, execv, (const char *path, char *const *arguments), noexcept, sim_execv(path, arguments))

int FACE(ioctl)(int fd, ioctl_request request, ...) noexcept;
int FACE(ioctl)(int fd, ioctl_request request, ...) noexcept
{
    start();
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return sim_ioctl(fd, static_cast<std::make_unsigned_t<ioctl_request>>(request), argument);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
