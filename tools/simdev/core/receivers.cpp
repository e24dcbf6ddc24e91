// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/receivers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <sys/un.h>

#include "platform/device.h"
#include "tools/simdev/core/faults.h"
#include "tools/simdev/core/log.h"
#include "tools/simdev/core/peer.h"
#include "tools/simdev/core/real.h"
#include "tools/simdev/core/watchdog.h"

namespace {

// Datagrams: one more than a Linux system's default for the backlog, which it compares before it
// adds one.
constexpr int queue_length = 11;

struct {
    int folder_fd;
    std::array<bool, std::size(status_receivers)> foreign;
    std::array<int, std::size(status_receivers)> queued; // of a stuck one
} receiver_state;

// Sends to the socket in the device folder, through the folder's descriptor: however long the
// folder's path is, the address is short.
ssize_t send_really(int fd, int receiver, const void *data, size_t size, int flags)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d%s",
             receiver_state.folder_fd, status_receivers[receiver]);
    const ssize_t result = real.sendto(
        fd, data, size, flags, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    const bool nobody = result < 0 && (errno == ENOENT || errno == ECONNREFUSED);
    return nobody && !receiver_state.foreign[static_cast<size_t>(receiver)]
               ? static_cast<ssize_t>(size)
               : result;
}

// Sends to one that exists and does not read.
ssize_t queue_up(int fd, const slot *sender, int receiver, size_t size, int flags, int fault)
{
    int &queued = receiver_state.queued[static_cast<size_t>(receiver)];
    if (queued < queue_length) {
        queued++;
        return static_cast<ssize_t>(size);
    }
    if (sender->send_timeout_us == 0 && !does_not_block(fd, flags))
        hang(fault);
    errno = EAGAIN;
    return -1;
}

} // namespace

void receivers_start(int folder_fd, const char *foreign)
{
    receiver_state = {};
    receiver_state.folder_fd = folder_fd;
    for (size_t index = 0; index < receiver_state.foreign.size(); index++)
        receiver_state.foreign[index] = strchr(foreign, static_cast<char>('1' + index)) != nullptr;
}

int find_receiver(const sockaddr *address, socklen_t size)
{
    if (address == nullptr || size <= offsetof(sockaddr_un, sun_path) ||
        address->sa_family != AF_UNIX)
        return -1;
    const char *path = reinterpret_cast<const sockaddr_un *>(address)->sun_path;
    const size_t capacity = size - offsetof(sockaddr_un, sun_path);
    for (size_t index = 0; index < std::size(status_receivers); index++)
        if (strncmp(path, status_receivers[index], capacity) == 0)
            return static_cast<int>(index);
    return -1;
}

ssize_t send_datagram(int fd, const slot *sender, int receiver, const void *data, size_t size,
                      int flags)
{
    sim_operation operation = make_operation(op_datagram, status_receivers[receiver]);
    operation.length = static_cast<int64_t>(size);
    operation.text_size = static_cast<uint8_t>(std::min(size, sizeof operation.text));
    memcpy(operation.text, data, operation.text_size);
    const sim_fault *missing = find_fault(fault_receiver_missing, 1, receiver + 1);
    const sim_fault *stuck = find_fault(fault_receiver_stuck, 1, receiver + 1);
    ssize_t result = -1;
    errno = ENOENT;
    if (missing == nullptr)
        result = stuck != nullptr ? queue_up(fd, sender, receiver, size, flags, fault_index(stuck))
                                  : send_really(fd, receiver, data, size, flags);
    if (result < 0 && errno == EAGAIN && !does_not_block(fd, flags)) {
        (stuck != nullptr ? spend : advance)(sender->send_timeout_us);
        operation.duration_us = sender->send_timeout_us;
        errno = EAGAIN; // a wait may have changed it
    }
    return static_cast<ssize_t>(
        log_result(&operation, result, missing != nullptr ? missing : stuck));
}
