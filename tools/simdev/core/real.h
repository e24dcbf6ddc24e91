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
#include <sys/wait.h>
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

/// Stands for DO(name) for each of the calls, waitpid last.
#define REAL_CALLS(DO)                                                                             \
    DO(open64)                                                                                     \
    DO(fopen64)                                                                                    \
    DO(read)                                                                                       \
    DO(write)                                                                                      \
    DO(lseek64)                                                                                    \
    DO(close)                                                                                      \
    DO(ioctl)                                                                                      \
    DO(clock_nanosleep)                                                                            \
    DO(select)                                                                                     \
    DO(poll)                                                                                       \
    DO(socket)                                                                                     \
    DO(connect)                                                                                    \
    DO(sendto)                                                                                     \
    DO(recvfrom)                                                                                   \
    DO(setsockopt)                                                                                 \
    DO(gethostbyname)                                                                              \
    DO(waitpid)

// Pointers as the headers declare the calls, but for what promises not to throw.
template<typename Result, typename... Rest>
auto pointer_to(Result (*)(Rest...)) -> Result (*)(Rest...);
template<typename Result, typename... Rest>
auto pointer_to(Result (*)(Rest..., ...)) -> Result (*)(Rest..., ...);

// NOLINTNEXTLINE(bugprone-macro-parentheses): a declaration
#define REAL_MEMBER(name) decltype(pointer_to(&::name)) name;
struct sim_real {
    REAL_CALLS(REAL_MEMBER)
};
#undef REAL_MEMBER

/// A fuzzer puts its own functions in their place: without sim_start all that the face takes over
/// goes straight here.
extern sim_real real;

/// Fills it in with what lies behind the face. False when that was done before.
bool real_find();
