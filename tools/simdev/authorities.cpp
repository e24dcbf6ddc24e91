// SPDX-License-Identifier: GPL-2.0-or-later
//
// The CA file of a wrapped program: the TLS library opens it by itself, where no wrap catches it,
// so the library is handed the device's file by its descriptor.
#include <cstdio>
#include <fcntl.h>

#include "tools/simdev/core/sim.h"

struct WOLFSSL_CTX;

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the linker's names
extern "C" {
int __real_wolfSSL_CTX_load_verify_locations(WOLFSSL_CTX *context, const char *file,
                                             const char *folder);
int __wrap_wolfSSL_CTX_load_verify_locations(WOLFSSL_CTX *context, const char *file,
                                             const char *folder);

int __wrap_wolfSSL_CTX_load_verify_locations(WOLFSSL_CTX *context, const char *file,
                                             const char *folder)
{
    const int fd = sim_open(file, O_RDONLY | O_CLOEXEC, 0);
    char path[32];
    snprintf(path, sizeof(path), "/proc/self/fd/%d", fd);
    const int result = __real_wolfSSL_CTX_load_verify_locations(context, path, folder);
    if (fd >= 0)
        sim_close(fd);
    return result;
}
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
