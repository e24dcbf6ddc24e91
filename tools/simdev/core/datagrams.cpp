// SPDX-License-Identifier: GPL-2.0-or-later
//
// The status receivers.
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <sys/un.h>

#include "platform/device.h"
#include "tools/simdev/core/peer.h"

namespace {

// Datagrams: one more than a Linux system's default for the backlog, which it compares before it
// adds one.
constexpr int receiver_queue_length = 11;

bool receiver_has_fault(fault_kind kind, int receiver)
{
    for (size_t index = 0; index < model.fault_count; index++) {
        const sim_fault *fault = &model.faults[index];
        if (fault->kind == kind && (fault->receiver < 0 || fault->receiver == receiver + 1))
            return true;
    }
    return false;
}

// Sends to the socket in the device folder, through the folder's descriptor: however long the
// folder's path is, the address is short.
ssize_t send_real_datagram(int fd, int receiver, const void *data, size_t size, int flags)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d%s", model.folder_fd,
             status_receivers[receiver]);
    return real.sendto(fd, data, size, flags, reinterpret_cast<const sockaddr *>(&address),
                       sizeof address);
}

} // namespace

int find_receiver(const sockaddr *address, socklen_t size)
{
    if (address == nullptr || size <= offsetof(sockaddr_un, sun_path) ||
        address->sa_family != AF_UNIX)
        return -1;
    const char *path = reinterpret_cast<const sockaddr_un *>(address)->sun_path;
    const size_t capacity = size - offsetof(sockaddr_un, sun_path);
    for (int index = 0; index < static_cast<int>(std::size(status_receivers)); index++)
        if (strncmp(path, status_receivers[index], capacity) == 0)
            return index;
    return -1;
}

ssize_t send_datagram(int fd, const slot *sender, int receiver, const void *data, size_t size,
                      int flags)
{
    sim_operation operation = make_operation("datagram");
    operation.target = status_receivers[receiver];
    operation.length = static_cast<int64_t>(size);
    operation.data = data;
    operation.data_size = size;
    int &queued = model.receiver_queued[static_cast<size_t>(receiver)];
    if (receiver_has_fault(fault_receiver_missing, receiver)) {
        operation.fault = fault_descriptions[fault_receiver_missing].name;
        errno = ENOENT;
    } else if (receiver_has_fault(fault_receiver_stuck, receiver)) {
        operation.fault = fault_descriptions[fault_receiver_stuck].name;
        if (queued < receiver_queue_length) {
            queued++;
            operation.result = static_cast<int64_t>(size);
        } else if (sender->send_timeout_us == 0 && !does_not_block(fd, flags)) {
            hang(operation.fault);
        }
        errno = EAGAIN;
    } else {
        operation.result = send_real_datagram(fd, receiver, data, size, flags);
        // The simulation is the receiver where nobody else is: it reads all at once.
        if (operation.result < 0 && (errno == ENOENT || errno == ECONNREFUSED) &&
            !model.foreign_receivers[static_cast<size_t>(receiver)])
            operation.result = static_cast<int64_t>(size);
    }
    operation.error = errno;
    if (operation.result < 0 && errno == EAGAIN && !does_not_block(fd, flags)) {
        if (operation.fault != nullptr && !model.fast)
            sleep_really(sender->send_timeout_us);
        advance(sender->send_timeout_us);
        operation.duration_us = sender->send_timeout_us;
    }
    log_operation(&operation);
    errno = operation.error;
    return static_cast<ssize_t>(operation.result);
}
