// SPDX-License-Identifier: GPL-2.0-or-later
//
// The calls that the linker redirects (--wrap): to the world of the run while there is one, else to
// where they were meant to go. The list in fuzz/CMakeLists.txt has the same names.
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include "fuzz/support/wrap.h"

using fuzz::caught;
using fuzz::fails_now;
using fuzz::is_ours;

// The name of a redirected call and of the one behind it, as the linker makes them.
#define REDIRECTED(result, name, ...)                                                              \
    extern "C" result __real_##name(__VA_ARGS__);                                                  \
    extern "C" result __wrap_##name(__VA_ARGS__);                                                  \
    extern "C" result __wrap_##name(__VA_ARGS__)

// A call that gives `answer` while it is caught, or `failure` where it is the one to fail.
#define ANSWERED(result, name, parameters, arguments, failure, answer)                             \
    REDIRECTED(result, name, EXPANDED parameters)                                                  \
    {                                                                                              \
        if (!caught())                                                                             \
            return __real_##name arguments;                                                        \
        return fails_now() ? failure : (answer);                                                   \
    }
#define EXPANDED(...) __VA_ARGS__

// As ANSWERED, for a call on a descriptor `fd`, which fails for one that is not the world's.
#define ANSWERED_FOR_OURS(name, parameters, arguments)                                             \
    ANSWERED(int, name, parameters, arguments, -1, is_ours(fd) ? 0 : -1)

// A call on a descriptor `fd` that the function `answer` serves; while calls are caught it fails
// for one that is not the world's, without counting.
#define TRANSFERRED(result, name, parameters, arguments, answer)                                   \
    REDIRECTED(result, name, EXPANDED parameters)                                                  \
    {                                                                                              \
        if (!is_ours(fd))                                                                          \
            return __real_##name(caught() ? -1 : fd, EXPANDED arguments);                          \
        return fails_now() ? -1 : fuzz::answer(fd, EXPANDED arguments);                            \
    }

ANSWERED(void *, malloc, (size_t size), (size), nullptr, fuzz::keep(__real_malloc(size)))
ANSWERED(void *, calloc, (size_t count, size_t size), (count, size), nullptr,
         fuzz::keep(__real_calloc(count, size)))
ANSWERED(char *, strdup, (const char *text), (text), nullptr,
         static_cast<char *>(fuzz::keep(__real_strdup(text))))

REDIRECTED(void, free, void *memory)
{
    if (caught())
        fuzz::forget(memory);
    __real_free(memory);
}

// A block of the block buffer comes from the heap, where the sanitizer knows its end.
REDIRECTED(void *, mmap64, void *address, size_t size, int protection, int flags, int fd,
           off_t offset)
{
    if (!caught())
        return __real_mmap64(address, size, protection, flags, fd, offset);
    void *memory = fails_now() ? nullptr : fuzz::keep(__real_calloc(1, size));
    return memory == nullptr ? MAP_FAILED : memory;
}

REDIRECTED(int, munmap, void *address, size_t size)
{
    if (!caught())
        return __real_munmap(address, size);
    fuzz::forget(address);
    __real_free(address);
    return 0;
}

ANSWERED(int, mprotect, (void *address, size_t size, int protection), (address, size, protection),
         -1, 0)
ANSWERED(int, open64, (const char *path, int flags, mode_t mode), (path, flags, mode), -1,
         fuzz::open_device(path))

REDIRECTED(int, close, int fd)
{
    if (!caught())
        return __real_close(fd);
    if (is_ours(fd))
        return fuzz::close_descriptor(fd);
    errno = EBADF;
    return -1;
}

TRANSFERRED(ssize_t, read, (int fd, void *buffer, size_t size), (buffer, size), read_descriptor)
TRANSFERRED(ssize_t, write, (int fd, const void *buffer, size_t size), (buffer, size),
            write_descriptor)
TRANSFERRED(off_t, lseek64, (int fd, off_t offset, int whence), (offset, whence), seek_device)
ANSWERED_FOR_OURS(ioctl, (int fd, unsigned long request, void *argument), (fd, request, argument))

REDIRECTED(void, sync, void)
{
    if (!caught())
        __real_sync();
}

ANSWERED(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1,
         fuzz::open_socket(type))
ANSWERED_FOR_OURS(bind, (int fd, const sockaddr *address, socklen_t size), (fd, address, size))
ANSWERED(int, connect, (int fd, const sockaddr *address, socklen_t size), (fd, address, size), -1,
         is_ours(fd) ? fuzz::connect_stream(fd) : -1)
ANSWERED_FOR_OURS(setsockopt, (int fd, int level, int name, const void *value, socklen_t size),
                  (fd, level, name, value, size))

REDIRECTED(int, getsockopt, int fd, int level, int name, void *value, socklen_t *size)
{
    if (!caught())
        return __real_getsockopt(fd, level, name, value, size);
    if (fails_now() || !is_ours(fd))
        return -1;
    memset(value, 0, *size);
    return 0;
}

ANSWERED(ssize_t, sendto,
         (int fd, const void *packet, size_t size, int flags, const sockaddr *address,
          socklen_t address_size),
         (fd, packet, size, flags, address, address_size), -1,
         is_ours(fd) ? fuzz::send_datagram(static_cast<const uint8_t *>(packet), size) : -1)

REDIRECTED(ssize_t, recvfrom, int fd, void *buffer, size_t size, int flags, sockaddr *address,
           socklen_t *address_size)
{
    if (!caught())
        return __real_recvfrom(fd, buffer, size, flags, address, address_size);
    if (fails_now() || !is_ours(fd))
        return -1;
    uint16_t port = 0;
    const ssize_t count = fuzz::receive_datagram(buffer, size, &port);
    if (address != nullptr && *address_size >= sizeof(sockaddr_in)) {
        sockaddr_in sender = {};
        sender.sin_family = AF_INET;
        sender.sin_port = htons(port);
        memcpy(address, &sender, sizeof sender);
    }
    return count;
}

// One descriptor is waited for at a time; everything can be written at once.
REDIRECTED(int, select, int count, fd_set *readable, fd_set *writable, fd_set *exceptional,
           timeval *timeout)
{
    if (!caught())
        return __real_select(count, readable, writable, exceptional, timeout);
    if (fails_now())
        return -1;
    const int fd = count - 1;
    if (exceptional != nullptr)
        FD_ZERO(exceptional);
    if (!is_ours(fd))
        return -1;
    if (readable != nullptr && FD_ISSET(fd, readable) && !fuzz::readable(fd))
        FD_ZERO(readable);
    const bool ready = (readable != nullptr && FD_ISSET(fd, readable)) ||
                       (writable != nullptr && FD_ISSET(fd, writable));
    return ready ? 1 : 0;
}

// Any host but one that begins with "unknown" is this machine.
REDIRECTED(hostent *, gethostbyname, const char *name)
{
    if (!caught())
        return __real_gethostbyname(name);
    if (fails_now() || strncmp(name, "unknown", 7) == 0)
        return nullptr;
    static in_addr address = {htonl(INADDR_LOOPBACK)};
    static char *addresses[] = {reinterpret_cast<char *>(&address), nullptr};
    static hostent host = {nullptr, nullptr, AF_INET, sizeof address, addresses};
    return &host;
}

REDIRECTED(unsigned, sleep, unsigned seconds)
{
    return caught() ? 0 : __real_sleep(seconds);
}

REDIRECTED(int, usleep, useconds_t microseconds)
{
    return caught() ? 0 : __real_usleep(microseconds);
}
