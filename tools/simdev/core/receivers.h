// SPDX-License-Identifier: GPL-2.0-or-later
//
// The status receivers. The simulation is each of them where nobody else is, and reads all at once.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include "tools/simdev/core/descriptors.h"

/// `folder_fd` is the device folder's, for as long as the simulation lasts; `foreign` is "1", "2"
/// or "12": those that somebody else is, on the socket in the folder.
void receivers_start(int folder_fd, const char *foreign);

/// The index in status_receivers (platform/device.h) that an address means, or -1.
int find_receiver(const sockaddr *address, socklen_t size);

/// Sends a status datagram to it.
ssize_t send_datagram(int fd, const slot *sender, int receiver, const void *data, size_t size,
                      int flags);
