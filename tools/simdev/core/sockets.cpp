// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/sockets.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <netinet/tcp.h>

#include "tools/simdev/core/clock.h"
#include "tools/simdev/core/faults.h"
#include "tools/simdev/core/log.h"
#include "tools/simdev/core/network.h"
#include "tools/simdev/core/peer.h"
#include "tools/simdev/core/real.h"
#include "tools/simdev/core/receivers.h"
#include "tools/simdev/core/watchdog.h"

namespace {

constexpr int ethernet_segment_size = 1460;

slot_kind kind_of(int domain, int type)
{
    const int plain = type & ~(SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (domain == AF_UNIX && plain == SOCK_DGRAM)
        return slot_unix;
    if (domain == AF_INET && plain == SOCK_STREAM)
        return slot_tcp;
    return domain == AF_INET && plain == SOCK_DGRAM ? slot_udp : slot_none;
}

// The device's address of a connection as the real system has it; names the slot by the device's
// view of it. False, and errno, for one that cannot be reached.
bool real_address(slot *connection, const sockaddr *address, sockaddr_in *mapped)
{
    memcpy(mapped, address, sizeof *mapped);
    char text[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &mapped->sin_addr, text, sizeof text);
    snprintf(connection->target, sizeof connection->target, "%s:%u", text, ntohs(mapped->sin_port));
    if (find_address(connection->kind == slot_udp, mapped))
        return true;
    errno = ENETUNREACH;
    return false;
}

void log_connect(const slot *connection, int result)
{
    sim_operation operation = make_operation(op_connect, connection->target);
    log_result(&operation, result);
}

void count_traffic(int fd, slot *connection, int64_t received, int64_t sent, int fault)
{
    log_traffic(fd, connection->target, received, sent, fault);
    connection->received += received;
}

// What the server's faults make of a receiving call: true when the real one is to follow, with
// `*size` bytes at the most; else `*result` and errno are the call's.
bool peer_lets(int fd, slot *connection, int flags, const peer *seen, size_t *size, ssize_t *result)
{
    *result = -1;
    if (seen->fault == nullptr)
        return true;
    if (seen->ended) {
        count_traffic(fd, connection, 0, 0, fault_index(seen->fault));
        *result = 0;
        return false;
    }
    if ((seen->silence_us > 0 && does_not_block(fd, flags)) ||
        !outlast(connection, seen, connection->receive_timeout_us)) {
        errno = EAGAIN;
        return false;
    }
    if (connection->kind == slot_tcp)
        *size = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(*size), seen->bytes));
    return true;
}

// One receiving call, `call(size)` being the real one.
template<typename Call> ssize_t receive(int fd, slot *connection, size_t size, int flags, Call call)
{
    const peer seen = look_at_peer(connection);
    ssize_t result = -1;
    if (!peer_lets(fd, connection, flags, &seen, &size, &result))
        return result;
    result = call(size);
    advance(0);
    if (result >= 0) {
        const bool limited = result >= seen.bytes; // the fault begins to show
        count_traffic(fd, connection, result, 0, limited ? fault_index(seen.fault) : -1);
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
        count_traffic(fd, connection, 0, result, -1);
    else if (errno == EAGAIN && connection->send_timeout_us > 0 && !does_not_block(fd, flags))
        wait_in_vain(connection, connection->send_timeout_us, false, nullptr);
    return result;
}

} // namespace

int sim_socket(int domain, int type, int protocol)
{
    const slot_kind kind = clock_runs() ? kind_of(domain, type) : slot_none;
    if (kind == slot_tcp || kind == slot_udp) {
        sim_operation operation = count_operation(op_socket, nullptr);
        if (const sim_fault *fault = find_fault(fault_socket_error, operation.number)) {
            errno = EMFILE;
            return static_cast<int>(log_result(&operation, -1, fault));
        }
    }
    const int fd = real.socket(domain, type, protocol);
    follow(fd, kind);
    return fd;
}

int sim_connect(int fd, const sockaddr *address, socklen_t size)
{
    slot *connection = followed(fd);
    if (connection == nullptr || !is_ipv4(address, size))
        return real.connect(fd, address, size);
    sockaddr_in mapped;
    if (!real_address(connection, address, &mapped)) {
        log_connect(connection, -1);
        return -1;
    }
    // Segments as on an Ethernet, which is what a device's network has: the loopback's of 64 KiB
    // would hide every read that ends where a segment does.
    const int segment = ethernet_segment_size;
    if (connection->kind == slot_tcp)
        real.setsockopt(fd, IPPROTO_TCP, TCP_MAXSEG, &segment, sizeof segment);
    const int result = real.connect(fd, reinterpret_cast<const sockaddr *>(&mapped), sizeof mapped);
    log_connect(connection, result);
    return result;
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
        if (!real_address(connection, address, &mapped)) {
            log_connect(connection, -1);
            return -1;
        }
        address = reinterpret_cast<const sockaddr *>(&mapped);
        address_size = sizeof mapped;
    }
    return transmit(fd, connection, flags,
                    [=]() { return real.sendto(fd, data, size, flags, address, address_size); });
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
        sender->sin_port = device_port(true, sender->sin_port);
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
