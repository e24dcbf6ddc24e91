// SPDX-License-Identifier: GPL-2.0-or-later
#include "flash/flash.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "flash/trailer.h"
#include "tests/simulated_platform.h"

namespace {

constexpr int block_size = 8;

/// Three blocks of a package: "ABCDEFGH" "IJKLMNOP" "QRSTUVWX".
struct blocks {
    std::string text = "ABCDEFGHIJKLMNOPQRSTUVWX";
    std::array<uint8_t *, 3> table = {bytes(0), bytes(8), bytes(16)};

    uint8_t *bytes(size_t at)
    {
        return reinterpret_cast<uint8_t *>(text.data()) + at;
    }
};

/// Counts what it is told, and says stop at call number `stop_at`.
struct progress {
    int stop_at = 0;
    std::vector<int> counts = {};
};

int count_progress(void *argument, int count)
{
    auto *told = static_cast<progress *>(argument);
    told->counts.push_back(count);
    return static_cast<int>(told->counts.size()) == told->stop_at ? 0 : 1;
}

int write_part(int32_t length, progress *told)
{
    blocks blocks;
    const int fd = open("/dev/fla2", O_WRONLY);
    const int result =
        write_blocks(fd, blocks.table.data(), block_size, length, count_progress, told);
    close(fd);
    return result;
}

using texts = std::vector<std::string>;

TEST(Flash, WritesEachBlockThenSyncsThenRestsAndTheTrailerLast)
{
    simulated_platform platform(2, 64);
    progress told;
    EXPECT_EQ(write_part(12, &told), 2);
    EXPECT_EQ(platform.operations,
              (texts{"open", "write 0+8", "sync", "sleep 40000", "write 8+4", "sync", "sleep 40000",
                     "seek -16", "write 48+16", "sync", "sleep 100000", "close"}));
    EXPECT_EQ(told.counts, (std::vector<int>{8, 4}));
    // crc32("ABCDEFGHIJKL"), 12, their sum with the magic, the magic: all little-endian.
    EXPECT_EQ(platform.content(2).substr(0, 48), "ABCDEFGHIJKL" + std::string(36, '\xFF'));
    EXPECT_EQ(platform.content(2).substr(48), std::string("\x34\x52\x4A\x63\x0C\0\0\0"
                                                          "\x71\xC2\x8C\xA7\x31\x70\x42\x44",
                                                          16));
}

TEST(Flash, WritesOnlyATrailerWithoutLength)
{
    for (const int32_t length : {0, -5}) {
        simulated_platform platform(2, 16);
        progress told;
        EXPECT_EQ(write_part(length, &told), 0);
        EXPECT_EQ(platform.operations,
                  (texts{"open", "seek -16", "write 0+16", "sync", "sleep 100000", "close"}));
        EXPECT_EQ(told.counts, std::vector<int>());
    }
}

TEST(Flash, StopsAtTheBlockThatTheCallbackRefusesWithoutATrailer)
{
    simulated_platform platform(2, 64);
    progress told{.stop_at = 2};
    EXPECT_EQ(write_part(24, &told), 1); // the index before the step
    EXPECT_EQ(platform.operations,
              (texts{"open", "write 0+8", "sync", "sleep 40000", "write 8+8", "sync", "close"}));
}

TEST(Flash, WritesAFailedBlockAgainBeyondTheBudgetOfTries)
{
    simulated_platform platform(2, 64, "write-error@2x150");
    progress told;
    testing::internal::CaptureStderr();
    EXPECT_EQ(write_part(16, &told), 2);
    const std::string line = "write block #1 failed: Input/output error\n";
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said.size(), 150 * line.size());
    EXPECT_TRUE(said.starts_with(line + line));
    EXPECT_EQ(clock_virtual_us(), 2 * 40'000 + 150 * 400'000 + 100'000);
    EXPECT_EQ(told.counts, (std::vector<int>{8, 8}));
    EXPECT_EQ(platform.content(2).substr(0, 16), "ABCDEFGHIJKLMNOP");
}

TEST(Flash, TakesAShortWriteForAWholeOneInCrcAndCount)
{
    simulated_platform platform(2, 64, "short-write@1:bytes=3");
    progress told;
    EXPECT_EQ(write_part(16, &told), 2);
    EXPECT_EQ(told.counts, (std::vector<int>{8, 8}));
    EXPECT_EQ(platform.content(2).substr(0, 12), "ABCIJKLMNOP\xFF");
    partition_trailer trailer;
    platform.content(2).copy(reinterpret_cast<char *>(&trailer), sizeof trailer, 48);
    EXPECT_EQ(trailer.crc, 0xE0E8FF4D); // of "ABCDEFGHIJKLMNOP"
}

TEST(Flash, WritesTheTrailerWhereItStandsWhenItCannotSeek)
{
    simulated_platform platform(2, 15); // too small for a trailer
    progress told;
    testing::internal::CaptureStderr();
    EXPECT_EQ(write_part(8, &told), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "partition checksum seek error: Invalid argument\n\n");
    EXPECT_EQ(platform.operations[5], "write 8+16");
    // A partition without any room left: the failure is reported, the count stays.
    simulated_platform full(2, 8);
    testing::internal::CaptureStderr();
    EXPECT_EQ(write_part(8, &told), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "partition checksum seek error: Invalid argument\n\n"
              "partition checksum write error: No space left on device\n\n");
}

TEST(Flash, ReadsBackBlockByBlockAndTheLastOneApart)
{
    struct row {
        int32_t length;
        const char *faults;
        int changed; ///< position of a byte that differs, or -1
        int result;
        const char *said;
        std::vector<int> counts;
        size_t partition = 64;
    };
    const row rows[] = {
        {24, "", -1, 1, "", {8, 8, 8}}, // the third whole block is the last one
        {17, "", -1, 1, "", {8, 8, 1}},
        {17, "", 17, 1, "", {8, 8, 1}}, // read with the last block, not compared
        {0, "", -1, 1, "", {}},
        {24, "", 9, 0, "block #1 differ\n", {8}},
        {24, "", 23, 0, "last block #2 differ\n", {8, 8}},
        {24, "read-error@2", -1, 0, "read block #1 failed: Input/output error\n", {8}},
        {8, "read-error@1", -1, 0, "read last block #0 failed: Input/output error\n", {}},
        // Reads that are cut by the partition's end.
        {24, "", -1, 0, "read block #1 failed: Success\n", {8}, 12},
        {24, "", -1, 0, "read last block #2 failed: Success\n", {8, 8}, 23},
        {22, "", -1, 1, "", {8, 8, 6}, 22},
    };
    for (const row &row : rows) {
        simulated_platform platform(2, row.partition, row.faults);
        blocks blocks;
        const int fd = open("/dev/fla2", O_RDWR);
        ASSERT_EQ(write(fd, blocks.bytes(0), 24), std::min<ssize_t>(24, row.partition));
        if (row.changed >= 0)
            *blocks.bytes(static_cast<size_t>(row.changed)) = '!';
        ASSERT_EQ(lseek(fd, 0, SEEK_SET), 0);
        progress told;
        errno = 0;
        testing::internal::CaptureStderr();
        EXPECT_EQ(
            verify_blocks(fd, blocks.table.data(), block_size, row.length, count_progress, &told),
            row.result);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.said);
        EXPECT_EQ(told.counts, row.counts) << row.length << row.faults << row.changed;
        close(fd);
    }
}

} // namespace
