// SPDX-License-Identifier: GPL-2.0-or-later
//
// The simulated platform from inside, call by call.
#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/device.h"
#include "tests/simulated_platform.h"
#include "tools/simdev/core/faults.h"
#include "tools/simdev/core/receivers.h"
#include "tools/simdev/core/watchdog.h"

namespace {

ssize_t send_status(int fd, const char *path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, path);
    return sendto(fd, "12345", 5, 0, reinterpret_cast<sockaddr *>(&address), sizeof address);
}

TEST(SimdevCore, ReceivesWhereNobodyElseIs)
{
    simulated_platform platform(2, 64, "receiver-missing:receiver=2");
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    EXPECT_EQ(send_status(fd, "/tmp/.upgrd_info"), 5);
    EXPECT_EQ(send_status(fd, "/tmp/.syscfg-server"), -1);
    EXPECT_EQ(errno, ENOENT);
    // One that was bound and is gone again.
    sockaddr_un address = {AF_UNIX, ""};
    const int bound = socket(AF_UNIX, SOCK_DGRAM, 0);
    strcpy(address.sun_path, (platform.folder() / "tmp/.upgrd_info").c_str());
    ASSERT_EQ(bind(bound, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    close(bound);
    EXPECT_EQ(send_status(fd, "/tmp/.upgrd_info"), 5);
    const int folder = open(platform.folder().c_str(), O_PATH);
    receivers_start(folder, "1");
    EXPECT_EQ(send_status(fd, "/tmp/.upgrd_info"), -1) << "it is somebody else, and not there";
    EXPECT_EQ(errno, ECONNREFUSED);
    close(folder);
    close(fd);
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

int kick(int32_t line, unsigned long request = 1)
{
    watchdog_record record = {line, 0, {}};
    const int fd = open("/dev/gpio", O_RDWR);
    const int result = ioctl(fd, request, &record) == 0 ? 0 : errno;
    close(fd);
    return result;
}

TEST(SimdevCore, TheGpioTakesKicksAlone)
{
    simulated_platform platform(2, 64, "gpio-refuse@2");
    EXPECT_EQ(kick(5), 0);
    EXPECT_EQ(kick(5), EIO);
    EXPECT_EQ(kick(5, TCGETS), ENOTTY);
    EXPECT_EQ(std::ranges::count(platform.operations, "kick"), 1);
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
    // A day is the most without a watchdog.
    const auto hang = testing::ExitedWithCode(sim_end_hang);
    const auto sleep_us = [](useconds_t more) {
        simulated_platform platform(2, 64);
        sleep(86'400);
        usleep(more);
    };
    sleep_us(0);
    EXPECT_EXIT(sleep_us(1), hang, "");
    // The write that is slow to arrive starves it as well.
    EXPECT_EXIT(
        {
            simulated_platform platform(2, 64, "watchdog:seconds=3;sync-slow@2:seconds=4");
            sync();
            sync();
        },
        reset, "");
}

TEST(SimdevCore, CountsSleepsAndFeedsTheWatchdogInRealTime)
{
    simulated_platform platform(2, 64, "watchdog:seconds=2", false);
    const timespec past = {1, 0};
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &past, nullptr), 0);
    EXPECT_EQ(clock_virtual_us(), 0) << "until a time is not for a time";
    for (int turn = 0; turn < 2; turn++) {
        usleep(1'050'000);
        kick(5);
    }
    EXPECT_EQ(clock_virtual_us(), 2'100'000);
    EXPECT_GE(clock_real_us(), 2'100'000);
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
    for (const row &played : rows) {
        simulated_platform platform(3, 12, played.faults);
        const int fd = open("/dev/fla3", O_RDWR);
        std::vector<ssize_t> results;
        for (int turn = 0; turn < 3; turn++)
            results.push_back(write(fd, "abcd", 4));
        EXPECT_EQ(results, played.results) << played.faults;
        std::string content = platform.content(3);
        std::ranges::replace(content, '\xFF', '.');
        EXPECT_EQ(content, played.content) << played.faults;
        EXPECT_EQ(lseek(fd, 0, SEEK_SET), std::string(played.faults) == "seek-error@1" ? -1 : 0);
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
    simulated_platform platform(3, 12,
                                "open-error:partition=4;open-error@2:partition=3;socket-error@2x2");
    const auto open_number = [](const char *path) {
        const int fd = open(path, O_RDONLY);
        close(fd);
        return fd >= 0;
    };
    const std::vector<bool> opened = {open_number("/dev/fla3"), open_number("/dev/fla3"),
                                      open_number("/dev/fla3")};
    EXPECT_EQ(opened, (std::vector<bool>{true, false, true}));
    EXPECT_FALSE(open_number("/dev/fla5")); // not there, and not made by being opened
    EXPECT_FALSE(open_number("/dev/flaX"));
    EXPECT_FALSE(open_number("/dev/fla33"));
    close(open("/dev/fla3", O_RDWR | O_CREAT | O_TRUNC, 0666));
    EXPECT_EQ(platform.content(3).size(), 12U) << "a device is not emptied by being opened";
    std::vector<bool> made;
    for (int turn = 0; turn < 4; turn++) {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        made.push_back(fd >= 0 || errno != EMFILE);
        close(fd);
    }
    EXPECT_EQ(made, (std::vector<bool>{true, false, false, true}));
}

} // namespace
