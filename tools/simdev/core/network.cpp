// SPDX-License-Identifier: GPL-2.0-or-later
//
// Sockets: ports both ways, traffic, waits.
#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include "tools/simdev/core/model.h"
#include "tools/simdev/core/peer.h"

namespace {

constexpr int ethernet_segment_size = 1460;

timeval to_timeval(int64_t microseconds)
{
    return {.tv_sec = static_cast<time_t>(microseconds / 1'000'000),
            .tv_usec = static_cast<suseconds_t>(microseconds % 1'000'000)};
}

// The other port of a pair; `port` itself where there is none. Host byte order.
uint16_t map_port(bool udp, bool to_actual, uint16_t port)
{
    for (size_t index = 0; index < model.port_count; index++) {
        const port_pair &pair = model.ports[index];
        if (pair.udp == udp && port == (to_actual ? pair.device : pair.actual))
            return to_actual ? pair.actual : pair.device;
    }
    return port;
}

bool is_ipv4(const sockaddr *address, socklen_t size)
{
    return address != nullptr && size >= sizeof(sockaddr_in) && address->sa_family == AF_INET;
}

// The address as the real system has it; names the slot by the device's view of it.
sockaddr_in real_address(slot *connection, const sockaddr *address)
{
    sockaddr_in mapped;
    memcpy(&mapped, address, sizeof mapped);
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &mapped.sin_addr, text, sizeof text);
    snprintf(connection->target, sizeof connection->target, "%s:%u", text, ntohs(mapped.sin_port));
    mapped.sin_port = htons(map_port(connection->kind == slot_udp, true, ntohs(mapped.sin_port)));
    return mapped;
}

void count_traffic(int fd, slot *connection, int64_t received, int64_t sent)
{
    if (model.busy_fd != fd)
        log_pending();
    model.busy_fd = fd;
    connection->pending_received += received;
    connection->pending_sent += sent;
    connection->pending_calls++;
    connection->received += received;
}

// One receiving call, `call(size)` being the real one.
template<typename Call> ssize_t receive(int fd, slot *connection, size_t size, int flags, Call call)
{
    if (model.has_server_fault) {
        const peer peer = look_at_peer(connection);
        if (peer.ended) {
            count_traffic(fd, connection, 0, 0);
            connection->pending_fault = peer.fault;
            return 0;
        }
        if (peer.silence_us > 0 && does_not_block(fd, flags)) {
            errno = EAGAIN;
            return -1;
        }
        if (!outlast(connection, &peer, connection->receive_timeout_us)) {
            errno = EAGAIN;
            return -1;
        }
        if (connection->kind == slot_tcp)
            size = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(size), peer.bytes));
    }
    const ssize_t result = call(size);
    if (result >= 0) {
        count_traffic(fd, connection, result, 0);
        if (model.has_server_fault)
            note_drip(connection);
    } else if (errno == EAGAIN && connection->receive_timeout_us > 0 &&
               !does_not_block(fd, flags)) {
        wait_in_vain(connection, connection->receive_timeout_us, false, nullptr);
    }
    return result;
}

template<typename Call> ssize_t transmit(int fd, slot *connection, int flags, Call call)
{
    const ssize_t result = call();
    if (result >= 0)
        count_traffic(fd, connection, 0, result);
    else if (errno == EAGAIN && connection->send_timeout_us > 0 && !does_not_block(fd, flags))
        wait_in_vain(connection, connection->send_timeout_us, false, nullptr);
    return result;
}

} // namespace

int sim_socket(int domain, int type, int protocol)
{
    const int fd = real.socket(domain, type, protocol);
    if (!model.active || fd < 0 || fd >= slot_count)
        return fd;
    slot *made = &model.slots[static_cast<size_t>(fd)];
    *made = {};
    const int kind = type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (domain == AF_INET && kind == SOCK_STREAM)
        made->kind = slot_tcp;
    else if (domain == AF_INET && kind == SOCK_DGRAM)
        made->kind = slot_udp;
    else if (domain == AF_UNIX && kind == SOCK_DGRAM)
        made->kind = slot_unix;
    return fd;
}

int sim_connect(int fd, const sockaddr *address, socklen_t size)
{
    slot *connection = followed(fd);
    if (connection == nullptr || !is_ipv4(address, size))
        return real.connect(fd, address, size);
    const sockaddr_in mapped = real_address(connection, address);
    // Segments as on the Ethernet of a device: reads then end where they do there, and not at the
    // loopback's 64 KiB.
    const int segment = ethernet_segment_size;
    if (connection->kind == slot_tcp)
        real.setsockopt(fd, IPPROTO_TCP, TCP_MAXSEG, &segment, sizeof segment);
    const int result = real.connect(fd, reinterpret_cast<const sockaddr *>(&mapped), sizeof mapped);
    sim_operation operation = make_operation("connect");
    operation.target = connection->target;
    operation.result = result;
    operation.error = errno;
    log_operation(&operation);
    return result;
}

ssize_t sim_send(int fd, const void *data, size_t size, int flags)
{
    return sim_sendto(fd, data, size, flags, nullptr, 0);
}

ssize_t sim_sendto(int fd, const void *data, size_t size, int flags, const sockaddr *address,
                   socklen_t address_size)
{
    slot *connection = followed(fd);
    if (connection == nullptr)
        return real.sendto(fd, data, size, flags, address, address_size);
    const int receiver = find_receiver(address, address_size);
    if (receiver >= 0)
        return send_datagram(fd, connection, receiver, data, size, flags);
    sockaddr_in mapped;
    if (is_ipv4(address, address_size)) {
        mapped = real_address(connection, address);
        address = reinterpret_cast<const sockaddr *>(&mapped);
        address_size = sizeof mapped;
    }
    return transmit(fd, connection, flags,
                    [=]() { return real.sendto(fd, data, size, flags, address, address_size); });
}

ssize_t sim_recv(int fd, void *buffer, size_t size, int flags)
{
    return sim_recvfrom(fd, buffer, size, flags, nullptr, nullptr);
}

ssize_t sim_recvfrom(int fd, void *buffer, size_t size, int flags, sockaddr *address,
                     socklen_t *address_size)
{
    slot *connection = followed(fd);
    if (connection == nullptr)
        return real.recvfrom(fd, buffer, size, flags, address, address_size);
    const ssize_t result = receive(fd, connection, size, flags, [=](size_t allowed) {
        return real.recvfrom(fd, buffer, allowed, flags, address, address_size);
    });
    if (result >= 0 && connection->kind == slot_udp && address_size != nullptr &&
        is_ipv4(address, *address_size)) {
        auto *sender = reinterpret_cast<sockaddr_in *>(address);
        sender->sin_port = htons(map_port(true, false, ntohs(sender->sin_port)));
    }
    return result;
}

ssize_t read_connection(int fd, slot *connection, void *buffer, size_t size)
{
    // Not by recv, which waits where a read of 0 bytes returns at once.
    return receive(fd, connection, size, 0,
                   [=](size_t allowed) { return real.read(fd, buffer, allowed); });
}

ssize_t write_connection(int fd, slot *connection, const void *data, size_t size)
{
    return transmit(fd, connection, 0, [=]() { return real.write(fd, data, size); });
}

int sim_setsockopt(int fd, int level, int name, const void *value, socklen_t size)
{
    slot *connection = followed(fd);
    if (connection == nullptr || level != SOL_SOCKET || size < sizeof(timeval) ||
        (name != SO_RCVTIMEO && name != SO_SNDTIMEO))
        return real.setsockopt(fd, level, name, value, size);
    timeval timeout;
    memcpy(&timeout, value, sizeof timeout);
    const int64_t whole = to_us(&timeout);
    (name == SO_RCVTIMEO ? connection->receive_timeout_us : connection->send_timeout_us) = whole;
    timeout = to_timeval(real_wait_us(whole));
    return real.setsockopt(fd, level, name, &timeout, sizeof timeout);
}

int sim_select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout)
{
    if (!model.active)
        return real.select(count, read, write, except, timeout);
    const int64_t whole = timeout == nullptr ? -1 : to_us(timeout);
    waited_for waited;
    for (int fd = 0; fd < count && read != nullptr; fd++)
        if (FD_ISSET(fd, read) && followed(fd) != nullptr)
            waited.add(followed(fd));
    int ready = 0;
    if (write != nullptr || sit_out_silence(&waited, whole)) {
        timeval limit = to_timeval(real_wait_us(whole));
        ready = real.select(count, read, write, except, timeout == nullptr ? nullptr : &limit);
        if (ready == 0 && whole > 0)
            wait_in_vain(waited.connection, whole, false, nullptr);
    } else {
        for (fd_set *set : {read, write, except})
            if (set != nullptr)
                FD_ZERO(set);
    }
    if (ready == 0 && timeout != nullptr)
        *timeout = {};
    return ready;
}

int sim_poll(pollfd *fds, nfds_t count, int timeout_ms)
{
    if (!model.active)
        return real.poll(fds, count, timeout_ms);
    const int64_t whole = timeout_ms < 0 ? -1 : timeout_ms * INT64_C(1000);
    waited_for waited;
    bool only_reads = true;
    for (nfds_t index = 0; index < count; index++) {
        const slot *connection = followed(fds[index].fd);
        only_reads = only_reads && connection != nullptr && (fds[index].events & POLLOUT) == 0;
        if (connection != nullptr)
            waited.add(connection);
    }
    if (only_reads && !sit_out_silence(&waited, whole)) {
        for (nfds_t index = 0; index < count; index++)
            fds[index].revents = 0;
        return 0;
    }
    const int64_t limit = real_wait_us(whole);
    const int ready =
        real.poll(fds, count, limit < 0 ? -1 : static_cast<int>((limit + 999) / 1000));
    if (ready == 0 && whole > 0)
        wait_in_vain(waited.connection, whole, false, nullptr);
    return ready;
}
