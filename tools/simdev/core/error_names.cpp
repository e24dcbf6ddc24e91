// SPDX-License-Identifier: GPL-2.0-or-later
//
// The names of error numbers for the log, where the C library does not have them (musl).
#include <algorithm>
#include <cerrno>
#include <iterator>

#include "tools/simdev/core/real.h"

namespace {

struct error_name {
    int number;
    const char *name;
};

// What the calls in real.h can fail with, and what faults make of them.
constexpr error_name error_names[] = {
#define NAME(error) {error, #error},
    // clang-format off
    NAME(EPERM) NAME(ENOENT) NAME(EINTR) NAME(EIO) NAME(ENXIO) NAME(EBADF) NAME(ECHILD) NAME(EAGAIN)
    NAME(ENOMEM) NAME(EACCES) NAME(EFAULT) NAME(EBUSY) NAME(EEXIST) NAME(ENODEV) NAME(ENOTDIR)
    NAME(EISDIR) NAME(EINVAL) NAME(ENFILE) NAME(EMFILE) NAME(ENOTTY) NAME(EFBIG) NAME(ENOSPC)
    NAME(ESPIPE) NAME(EROFS) NAME(EPIPE) NAME(ENAMETOOLONG) NAME(ENOSYS) NAME(ELOOP) NAME(EMSGSIZE)
    NAME(EPROTOTYPE) NAME(ENOPROTOOPT) NAME(EPROTONOSUPPORT) NAME(EOPNOTSUPP) NAME(EAFNOSUPPORT)
    NAME(EADDRINUSE) NAME(EADDRNOTAVAIL) NAME(ENETDOWN) NAME(ENETUNREACH) NAME(ECONNABORTED)
    NAME(ECONNRESET) NAME(ENOBUFS) NAME(EISCONN) NAME(ENOTCONN) NAME(ETIMEDOUT) NAME(ECONNREFUSED)
    NAME(EHOSTDOWN) NAME(EHOSTUNREACH) NAME(EALREADY) NAME(EINPROGRESS)
// clang-format on
#undef NAME
};

} // namespace

const char *strerrorname_np(int error)
{
    const auto *found = std::find_if(std::begin(error_names), std::end(error_names),
                                     [&](const error_name &each) { return each.number == error; });
    return found != std::end(error_names) ? found->name : "unknown";
}
