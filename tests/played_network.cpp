// SPDX-License-Identifier: GPL-2.0-or-later
#include "tests/played_network.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <sys/select.h>
#include <unistd.h>

played_network played;

namespace {

played_peer *peer_at(int fd)
{
    for (played_peer &peer : played.peers)
        if (fd >= 0 && peer.socket == fd)
            return &peer;
    return nullptr;
}

void reach(played_peer *peer, int socket, const std::string &address)
{
    peer->socket = socket;
    peer->address = address;
    peer->scripted.script = {reinterpret_cast<const uint8_t *>(peer->script.data()),
                             peer->script.size()};
}

} // namespace

int play_connected(const std::string &script)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    reach(&played.peers.emplace_back(played_peer{.port = 0, .script = script}), fd, "connected");
    return fd;
}

#pragma GCC diagnostic ignored "-Wmissing-declarations" // the wraps
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names

extern "C" {
int __wrap_connect(int socket, const sockaddr *address, socklen_t)
{
    const auto *to = reinterpret_cast<const sockaddr_in *>(address);
    const int port = ntohs(to->sin_port);
    for (played_peer &peer : played.peers) {
        if (peer.port != port || !peer.address.empty())
            continue;
        reach(&peer, socket, inet_ntoa(to->sin_addr) + (":" + std::to_string(port)));
        return 0;
    }
    errno = ECONNREFUSED;
    return -1;
}
ssize_t __real_read(int, void *, size_t);
ssize_t __wrap_read(int fd, void *buffer, size_t size)
{
    played_peer *peer = peer_at(fd);
    return peer == nullptr ? __real_read(fd, buffer, size) : peer->scripted.read(buffer, size);
}
ssize_t __real_write(int, const void *, size_t);
ssize_t __wrap_write(int fd, const void *buffer, size_t size)
{
    played_peer *peer = peer_at(fd);
    if (peer == nullptr)
        return __real_write(fd, buffer, size);
    if (peer->resets) {
        errno = EPIPE;
        return -1;
    }
    peer->received.append(static_cast<const char *>(buffer), size);
    peer->scripted.take(buffer, size);
    return static_cast<ssize_t>(size);
}
int __real_close(int);
int __wrap_close(int fd)
{
    if (played_peer *peer = peer_at(fd))
        peer->socket = -1;
    return __real_close(fd);
}
int __wrap_select(int, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *wait)
{
    played.waited_seconds = wait->tv_sec;
    if (exceptional != nullptr)
        FD_ZERO(exceptional);
    if (writable != nullptr)
        return !played.writable || played.writable() ? 1 : 0;
    for (played_peer &peer : played.peers)
        if (peer.socket >= 0 && FD_ISSET(peer.socket, readable) && peer.scripted.readable())
            return 1;
    FD_ZERO(readable);
    return 0;
}
unsigned __wrap_sleep(unsigned)
{
    return 0;
}
}
// NOLINTEND(bugprone-reserved-identifier)
