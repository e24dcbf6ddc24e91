// SPDX-License-Identifier: GPL-2.0-or-later
//
// The simulated network from inside, call by call.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/simulated_platform.h"
#include "tools/simdev/core/network.h"
#include "tools/simdev/core/watchdog.h"

namespace {

using texts = std::vector<std::string>;

/// A listening socket of this machine, and its port.
struct listener {
    int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    listener()
    {
        socklen_t size = sizeof address;
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(socket, reinterpret_cast<sockaddr *>(&address), size), 0);
        listen(socket, 5);
        getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size);
    }
    ~listener()
    {
        close(socket);
    }
};

int connect_to(int fd, const char *address, int port)
{
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address, &to.sin_addr);
    return connect(fd, reinterpret_cast<sockaddr *>(&to), sizeof to) == 0 ? 0 : errno;
}

int network(const std::string &ports, const char *hosts, bool real)
{
    char error[256];
    return network_start(ports.c_str(), hosts, real, error, sizeof error);
}

TEST(SimdevNetwork, NeverLeavesThisMachineUnlessItIsTold)
{
    const listener server;
    simulated_platform platform(2, 64);
    const std::string port = std::to_string(ntohs(server.address.sin_port));
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const int datagrams = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(connect_to(fd, "192.0.2.1", 80), ENETUNREACH);
    EXPECT_EQ(connect_to(datagrams, "192.0.2.1", 69), ENETUNREACH);
    EXPECT_EQ(gethostbyname("fw.example"), nullptr);
    EXPECT_EQ(h_errno, HOST_NOT_FOUND);
    ASSERT_NE(gethostbyname("localhost"), nullptr);
    ASSERT_NE(gethostbyname("192.0.2.1"), nullptr);

    ASSERT_EQ(network("tcp:80=" + port + ",", "fw.example=127.0.0.9,192.0.2.7=192.0.2.8,", false),
              0);
    EXPECT_EQ(connect_to(fd, "192.0.2.1", 80), 0); // the port is this machine's now
    close(fd);
    const auto address = [](const char *name) {
        const hostent *entry = gethostbyname(name);
        return entry == nullptr ? 0 : ntohl(*reinterpret_cast<uint32_t *>(entry->h_addr_list[0]));
    };
    EXPECT_EQ(address("FW.example"), 0x7F000009U);
    EXPECT_EQ(address("192.0.2.7"), 0xC0000208U);
    EXPECT_EQ(address("fw.example.org"), 0U);
    sockaddr_in mapped = {AF_INET, htons(81), {htonl(0xC0000208)}, {}};
    EXPECT_TRUE(find_address(false, &mapped)); // what is mapped is meant to be reached
    mapped.sin_port = htons(80);
    EXPECT_TRUE(find_address(false, &mapped));
    EXPECT_EQ(mapped.sin_addr.s_addr, htonl(0xC0000208));
    EXPECT_EQ(mapped.sin_port, server.address.sin_port);
    mapped = {AF_INET, htons(80), {htonl(0xC0000201)}, {}};
    EXPECT_FALSE(find_address(true, &mapped)); // another protocol's port
    EXPECT_EQ(device_port(false, server.address.sin_port), htons(80));
    EXPECT_EQ(device_port(true, server.address.sin_port), server.address.sin_port);

    ASSERT_EQ(network("tcp:80=" + port + ",", "", true), 0);
    EXPECT_TRUE(find_address(false, &mapped));
    EXPECT_EQ(mapped.sin_addr.s_addr, htonl(0xC0000201)); // stays where it is
    close(datagrams);
    std::string pairs;
    for (int count = 0; count < 16; count++)
        pairs += "tcp:80=81,";
    EXPECT_EQ(network(pairs, "", false), 0);
    EXPECT_EQ(network(pairs + "tcp:65535=1,", "", false), -1) << "there is room for 16";
}

TEST(SimdevNetwork, AServersFaultShowsFromItsByteOn)
{
    struct row {
        const char *fault;
        ssize_t last; ///< result of the read behind what came
        size_t bytes;
        int64_t virtual_us;
    };
    const row rows[] = {
        {"server-cut@3", 0, 3, 0},
        {"server-stall@3", -1, 3, 5'000'000},
        {"server-drip:bytes=4,seconds=2", 0, 9, 6'000'000}, // its end takes a turn, too
        {"server-drip:bytes=9,seconds=5", 0, 9, 5'000'000}, // just in time
        {"server-drip", 0, 9, 9'000'000},
    };
    const listener server;
    for (const row &played : rows) {
        simulated_platform platform(2, 64, played.fault);
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        const timeval wait = {5, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        ASSERT_EQ(connect_to(fd, "127.0.0.1", ntohs(server.address.sin_port)), 0);
        const int peer = accept(server.socket, nullptr, nullptr);
        ASSERT_EQ(send(peer, "123456789", 9, 0), 9);
        close(peer);
        char buffer[100];
        size_t bytes = static_cast<size_t>(recv(fd, buffer, sizeof buffer, 0));
        EXPECT_EQ(recv(fd, buffer, sizeof buffer, MSG_DONTWAIT),
                  bytes == 3 && played.last == 0 ? 0 : -1);
        EXPECT_EQ(clock_virtual_us(), 0) << "who does not want to wait does not";
        ssize_t size = 0;
        while ((size = recv(fd, buffer, sizeof buffer, 0)) > 0)
            bytes += static_cast<size_t>(size);
        EXPECT_EQ(size, played.last) << played.fault;
        EXPECT_EQ(bytes, played.bytes) << played.fault;
        EXPECT_EQ(clock_virtual_us(), played.virtual_us) << played.fault;
        close(fd);
    }
}

TEST(SimdevNetwork, AServerIsSeenAsTheDeviceSeesIt)
{
    const listener server;
    simulated_platform platform(2, 64);
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect_to(fd, "127.0.0.1", ntohs(server.address.sin_port)), 0);
    int segment = 0;
    socklen_t size = sizeof segment;
    getsockopt(fd, IPPROTO_TCP, TCP_MAXSEG, &segment, &size);
    EXPECT_LE(segment, 1460);
    close(fd);
    // A datagram from the port that is mapped comes from the device's.
    const int peer = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in own = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    sockaddr_in from = {};
    auto *sender = reinterpret_cast<sockaddr *>(&from);
    size = sizeof own;
    ASSERT_EQ(bind(peer, reinterpret_cast<const sockaddr *>(&own), size), 0);
    getsockname(peer, reinterpret_cast<sockaddr *>(&own), &size);
    network("udp:69=" + std::to_string(ntohs(own.sin_port)) + ",", "", false);
    const int device = socket(AF_INET, SOCK_DGRAM, 0);
    own.sin_port = htons(69);
    sendto(device, "x", 1, 0, reinterpret_cast<const sockaddr *>(&own), size);
    char byte = 0;
    recvfrom(peer, &byte, 1, 0, sender, &size);
    sendto(peer, "y", 1, 0, sender, size);
    EXPECT_EQ(recvfrom(device, &byte, 1, 0, sender, &size), 1);
    EXPECT_EQ(from.sin_port, htons(69));
    close(peer);
    close(device);
}

TEST(SimdevNetwork, SumsUpWhatOneConnectionCarriesInARow)
{
    const listener server;
    simulated_platform platform(2, 64);
    const int first = socket(AF_INET, SOCK_STREAM, 0);
    const int second = socket(AF_INET, SOCK_STREAM, 0);
    for (const int fd : {first, second})
        ASSERT_EQ(connect_to(fd, "127.0.0.1", ntohs(server.address.sin_port)), 0);
    for (const int fd : {first, first, second, first})
        EXPECT_EQ(send(fd, "12", 2, 0), 2);
    sync();
    EXPECT_EQ(platform.operations,
              (texts{"connect", "connect", "network", "network", "network", "sync"}));
    close(first);
    close(second);
}

TEST(SimdevNetwork, AStalledServerIsWaitedForByThoseWhoReadAlone)
{
    const listener server;
    simulated_platform platform(2, 64, "server-stall@0");
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    connect_to(fd, "127.0.0.1", ntohs(server.address.sin_port));
    pollfd waited = {fd, POLLIN | POLLOUT, 0};
    EXPECT_EQ(poll(&waited, 1, 5000), 1);
    EXPECT_EQ(clock_virtual_us(), 0);
    waited.events = POLLIN;
    EXPECT_EQ(poll(&waited, 1, 5000), 0);
    EXPECT_EQ(clock_virtual_us(), 5'000'000);
    close(fd);
}

TEST(SimdevNetwork, AStalledServerEndsADeviceThatWaitsForEver)
{
    const auto stalled = [](const char *faults) {
        const listener server;
        simulated_platform platform(2, 64, faults);
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        connect_to(fd, "127.0.0.1", ntohs(server.address.sin_port));
        char byte = 0;
        recv(fd, &byte, 1, 0);
    };
    EXPECT_EXIT(stalled("server-stall@0;watchdog:seconds=9"),
                testing::ExitedWithCode(sim_end_reset), "");
    EXPECT_EXIT(stalled("server-stall@0"), testing::ExitedWithCode(sim_end_hang), "");
}

} // namespace
