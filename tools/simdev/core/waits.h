// SPDX-License-Identifier: GPL-2.0-or-later
//
// The program's own waits, for descriptors and for a time, as long as the contracts of the calls
// that they are named for say in virtual time. In fast mode no sleep is slept.
#pragma once

#include <ctime>
#include <poll.h>
#include <sys/select.h>

int sim_select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout);
int sim_nanosleep(const timespec *time, timespec *rest);
int sim_clock_nanosleep(clockid_t clock, int flags, const timespec *time, timespec *rest);
int sim_poll(pollfd *fds, nfds_t count, int timeout_ms);
