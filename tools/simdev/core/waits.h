// SPDX-License-Identifier: GPL-2.0-or-later
//
// Waiting for descriptors, as long as the contracts of select and poll say in virtual time.
#pragma once

#include <poll.h>
#include <sys/select.h>

int sim_select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout);
int sim_poll(pollfd *fds, nfds_t count, int timeout_ms);
