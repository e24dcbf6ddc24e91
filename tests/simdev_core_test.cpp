// SPDX-License-Identifier: GPL-2.0-or-later
//
// The simulated platform from inside, call by call.
#include <algorithm>
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/device.h"
#include "tests/simulated_platform.h"
#include "tools/simdev/core/faults.h"
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
        bind(socket, reinterpret_cast<sockaddr *>(&address), size);
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

TEST(SimdevCore, NeverLeavesThisMachineUnlessItIsTold)
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

    ASSERT_EQ(network("tcp:80=" + port, "fw.example=127.0.0.9,192.0.2.7=192.0.2.8", false), 0);
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

    ASSERT_EQ(network("tcp:80=" + port, "", true), 0);
    EXPECT_TRUE(find_address(false, &mapped));
    EXPECT_EQ(mapped.sin_addr.s_addr, htonl(0xC0000201)); // stays where it is
    close(datagrams);
    for (const char *ports : {"80=81", "tcp:80", "tcp:0=1", "tcp:1=65536", "udp:1=2x"})
        EXPECT_EQ(network(ports, "", false), -1) << ports;
    for (const char *hosts : {"fw", "=127.0.0.1", "fw=127.0.0", "fw=other"})
        EXPECT_EQ(network("", hosts, false), -1) << hosts;
}

ssize_t send_status(int fd, const char *path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, path);
    return sendto(fd, "12345", 5, 0, reinterpret_cast<sockaddr *>(&address), sizeof address);
}

TEST(SimdevCore, AStuckReceiverTakesElevenDatagrams)
{
    simulated_platform platform(2, 64, "receiver-stuck:receiver=2");
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    const timeval wait = {2, 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof wait);
    for (int sent = 1; sent <= 11; sent++)
        EXPECT_EQ(send_status(fd, "/tmp/.syscfg-server"), 5) << sent;
    EXPECT_EQ(clock_virtual_us(), 0);
    EXPECT_EQ(send_status(fd, "/tmp/.syscfg-server"), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(clock_virtual_us(), 2'000'000);
    EXPECT_EQ(send_status(fd, "/tmp/.upgrd_info"), 5);
    close(fd);
}

int kick(int32_t line)
{
    watchdog_record record = {line, 0, {}};
    const int fd = open("/dev/gpio", O_RDWR);
    const int result = ioctl(fd, 1, &record);
    close(fd);
    return result;
}

TEST(SimdevCore, AWatchdogIsFedByKicksForALineAlone)
{
    const auto unfed = [](int32_t line, const char *faults, useconds_t before, useconds_t after) {
        simulated_platform platform(2, 64, faults);
        usleep(before);
        kick(line);
        usleep(after);
    };
    // 3 s without a kick are not too long, a microsecond more is.
    unfed(5, "watchdog:seconds=3", 3'000'000, 3'000'000);
    unfed(0, "watchdog:seconds=3", 3'000'000, 3'000'000);
    const auto reset = testing::ExitedWithCode(sim_end_reset);
    EXPECT_EXIT(unfed(5, "watchdog:seconds=3", 3'000'001, 0), reset, "");
    EXPECT_EXIT(unfed(5, "watchdog:seconds=3", 1'000'000, 3'000'001), reset, "");
    EXPECT_EXIT(unfed(-1, "watchdog:seconds=3", 2'000'000, 2'000'000), reset, "");
    EXPECT_EXIT(unfed(5, "watchdog:seconds=3;gpio-refuse@1", 2'000'000, 2'000'000), reset, "");
    // The write that is slow to arrive starves it as well.
    EXPECT_EXIT(
        {
            simulated_platform platform(2, 64, "watchdog:seconds=3;sync-slow@2:seconds=4");
            sync();
            sync();
        },
        reset, "");
}

TEST(SimdevCore, APartitionTakesItsFaultsInTheOrderOfItsWrites)
{
    struct row {
        const char *faults;
        std::vector<ssize_t> results; ///< of three writes of "abcd"
        const char *content;          ///< of the partition, 12 bytes of which are written to
    };
    const row rows[] = {
        {"", {4, 4, 4}, "abcdabcdabcd"},
        {"write-error@2", {4, -1, 4}, "abcdabcd...."},
        {"write-error@1x2", {-1, -1, 4}, "abcd........"},
        {"short-write@2", {4, 2, 4}, "abcdababcd.."},
        {"short-write@2:bytes=0", {4, 0, 4}, "abcdabcd...."},
        {"short-write@3:bytes=9", {4, 4, 4}, "abcdabcdabcd"},
        {"bit-flip@2:bit=9", {4, 4, 4}, "abcda`cdabcd"},
        {"bit-flip@2:bit=41", {4, 4, 4}, "abcda`cdabcd"}, // beyond the write: counted around
        {"seek-error@1", {4, 4, 4}, "abcdabcdabcd"},
    };
    for (const row &row : rows) {
        simulated_platform platform(3, 12, row.faults);
        const int fd = open("/dev/fla3", O_RDWR);
        std::vector<ssize_t> results;
        for (int turn = 0; turn < 3; turn++)
            results.push_back(write(fd, "abcd", 4));
        EXPECT_EQ(results, row.results) << row.faults;
        std::string content = platform.content(3);
        std::ranges::replace(content, '\xFF', '.');
        EXPECT_EQ(content, row.content) << row.faults;
        EXPECT_EQ(lseek(fd, 0, SEEK_SET), std::string(row.faults) == "seek-error@1" ? -1 : 0);
        close(fd);
    }
}

TEST(SimdevCore, APartitionEndsWithItsFile)
{
    simulated_platform platform(3, 6);
    const int fd = open("/dev/fla3", O_WRONLY);
    EXPECT_EQ(write(fd, "abcd", 4), 4);
    EXPECT_EQ(write(fd, "efgh", 4), 2);
    EXPECT_EQ(write(fd, "ijkl", 4), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(platform.content(3), "abcdef");
    close(fd);
}

TEST(SimdevCore, ACutLeavesWhatHadArrived)
{
    for (const auto &[fault, kept] :
         {std::pair("cut@2", 8), {"cut@2:torn=1", 5}, {"cut@2:torn=0", 4}}) {
        simulated_platform platform(3, 12);
        EXPECT_EXIT(
            {
                char error[256];
                faults_start(fault, error, sizeof error);
                const int fd = open("/dev/fla3", O_WRONLY);
                const bool whole = write(fd, "abcd", 4) == 4 && write(fd, "efgh", 4) == 4;
                _exit(whole ? 0 : 1);
            },
            testing::ExitedWithCode(sim_end_power_cut), "");
        EXPECT_EQ(platform.content(3),
                  std::string("abcdefgh").substr(0, static_cast<size_t>(kept)) +
                      std::string(static_cast<size_t>(12 - kept), '\xFF'));
    }
}

TEST(SimdevCore, OpensAndSocketsFailWhenTheyAreToldTo)
{
    simulated_platform platform(3, 12, "open-error@2:partition=3;socket-error@2x2");
    const auto open_number = [](const char *path) {
        const int fd = open(path, O_RDONLY);
        close(fd);
        return fd >= 0;
    };
    const std::vector<bool> opened = {open_number("/dev/fla3"), open_number("/dev/fla3"),
                                      open_number("/dev/fla3")};
    EXPECT_EQ(opened, (std::vector<bool>{true, false, true}));
    EXPECT_FALSE(open_number("/dev/fla4")); // not there, and not made by being opened
    EXPECT_FALSE(open_number("/dev/flaX"));
    std::vector<bool> made;
    for (int turn = 0; turn < 4; turn++) {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        made.push_back(fd >= 0);
        close(fd);
    }
    EXPECT_EQ(made, (std::vector<bool>{true, false, false, true}));
}

TEST(SimdevCore, AServersFaultShowsFromItsByteOn)
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
    };
    const listener server;
    for (const row &row : rows) {
        simulated_platform platform(2, 64, row.fault);
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        const timeval wait = {5, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        ASSERT_EQ(connect_to(fd, "127.0.0.1", ntohs(server.address.sin_port)), 0);
        const int peer = accept(server.socket, nullptr, nullptr);
        ASSERT_EQ(send(peer, "123456789", 9, 0), 9);
        close(peer);
        char buffer[100];
        size_t bytes = 0;
        ssize_t size = 0;
        while ((size = recv(fd, buffer, sizeof buffer, 0)) > 0)
            bytes += static_cast<size_t>(size);
        EXPECT_EQ(size, row.last) << row.fault;
        EXPECT_EQ(bytes, row.bytes) << row.fault;
        EXPECT_EQ(clock_virtual_us(), row.virtual_us) << row.fault;
        close(fd);
    }
}

TEST(SimdevCore, SumsUpWhatOneConnectionCarriesInARow)
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

} // namespace
