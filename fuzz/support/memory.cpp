// SPDX-License-Identifier: GPL-2.0-or-later
//
// Memory while calls are caught: each allocation is counted, may fail, and is known to the run. The
// names are those that the linker makes of --wrap; fuzz/CMakeLists.txt has the list. And the one
// call on a socket that simdev's face leaves to the system.
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <sys/socket.h>

#include "fuzz/support/fuzz.h"
#include "fuzz/support/world.h"

namespace {

void *mapping(void *memory)
{
    return memory == nullptr ? MAP_FAILED : memory;
}

int protect(void *memory)
{
    fuzz::require(fuzz::run::keeps(memory), "only memory that is there is protected");
    return fuzz::fails_now() ? -1 : 0;
}

int no_error(void *value, socklen_t size)
{
    memset(value, 0, size);
    return fuzz::fails_now() ? -1 : 0;
}

} // namespace

// A call that gives `answer` while calls are caught, else what it was meant to give.
#define REDIRECTED(result, name, parameters, arguments, answer)                                    \
    extern "C" result __real_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters                                                     \
    {                                                                                              \
        return fuzz::caught() ? (answer) : __real_##name arguments;                                \
    }
#define UNLESS_IT_FAILS(memory) fuzz::keep(fuzz::fails_now() ? nullptr : (memory))

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's names
REDIRECTED(void *, malloc, (size_t size), (size), UNLESS_IT_FAILS(__real_malloc(size)))
REDIRECTED(void *, calloc, (size_t count, size_t size), (count, size),
           UNLESS_IT_FAILS(__real_calloc(count, size)))
REDIRECTED(char *, strdup, (const char *text), (text),
           static_cast<char *>(UNLESS_IT_FAILS(__real_strdup(text))))
REDIRECTED(void, free, (void *memory), (memory), (fuzz::forget(memory), __real_free(memory)))
// A block of the block buffer comes from the heap, where the sanitizer knows its end.
REDIRECTED(void *, mmap64,
           (void *address, size_t size, int protection, int flags, int fd, off_t offset),
           (address, size, protection, flags, fd, offset),
           mapping(UNLESS_IT_FAILS(__real_calloc(1, size))))
REDIRECTED(int, munmap, (void *address, size_t size), (address, size), (free(address), 0))
REDIRECTED(int, mprotect, (void *address, size_t size, int protection), (address, size, protection),
           protect(address))
REDIRECTED(int, getsockopt, (int fd, int level, int name, void *value, socklen_t *size),
           (fd, level, name, value, size), no_error(value, *size))
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
