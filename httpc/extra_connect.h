// SPDX-License-Identifier: GPL-2.0-or-later
//
// For users of the library; the program does not: a connect with a time-out. No operation sets a
// client's `connect_timeout_seconds`; whoever writes it there gets this in place of a blocking
// connect.
#pragma once

#include <sys/socket.h>

/// Connects `socket` within `timeout_seconds`: above 0 when connected, 0 when the time has passed,
/// -1 on failure. A trace on standard error says the result. A connect that succeeds at once is 0
/// too, and one to a server that speaks first is -1. The socket's O_NONBLOCK is as before, unless
/// the wait itself failed.
int timed_connect(int socket, const sockaddr *address, socklen_t address_length,
                  int timeout_seconds);
