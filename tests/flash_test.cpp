// SPDX-License-Identifier: GPL-2.0-or-later
#include "flash/flash.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

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

using texts = std::vector<std::string>;

const std::string erased(48, '\xFF');
const texts block_0 = {"open", "write 0+8", "sync", "sleep 40000"};

texts then(texts operations, const texts &more)
{
    operations.insert(operations.end(), more.begin(), more.end());
    return operations;
}

const texts trailer_alone = {"open", "seek -16", "write 0+16", "sync", "sleep 100000", "close"};
const std::string no_seek = "partition checksum seek error: Invalid argument\n\n";

std::string times(int count, const std::string &line)
{
    return count == 0 ? "" : line + times(count - 1, line);
}

TEST(Flash, WritesBlockByBlockWithRestsAndTheTrailerLast)
{
    const struct {
        int32_t length;
        size_t partition;
        const char *faults;
        int stop_at, result;
        std::vector<int> counts;
        texts operations; ///< none: not looked at
        std::string said, content;
        uint64_t virtual_us;
        // clang-format off
    } rows[] = {
        // crc32("ABCDEFGHIJKL"), 12, their sum with the magic, the magic: all little-endian.
        {12, 64, "", 0, 2, {8, 4},
         then(block_0, {"write 8+4", "sync", "sleep 40000", "seek -16", "write 48+16", "sync",
                        "sleep 100000", "close"}),
         "", "ABCDEFGHIJKL" + erased.substr(12) +
             std::string("\x34\x52\x4A\x63\x0C\0\0\0\x71\xC2\x8C\xA7\x31\x70\x42\x44", 16),
         180'000},
        {0, 16, "", 0, 0, {}, trailer_alone, "", "", 100'000},
        {-5, 16, "", 0, 0, {}, trailer_alone, "", "", 100'000},
        // A callback that stops: the index before the step, and no trailer.
        {24, 64, "", 2, 1, {8, 8}, then(block_0, {"write 8+8", "sync", "close"}), "",
         "ABCDEFGHIJKLMNOP" + erased, 40'000},
        // A block that fails is written again, beyond the budget of tries.
        {16, 64, "write-error@2x150", 0, 2, {8, 8}, {},
         times(150, "write block #1 failed: Input/output error\n"), "ABCDEFGHIJKLMNOP",
         2 * 40'000 + 150 * 400'000 + 100'000},
        // A short write counts as whole, also in the checksum: that of all 16 bytes.
        {16, 64, "short-write@1:bytes=3", 0, 2, {8, 8}, {}, "",
         "ABCIJKLMNOP" + erased.substr(11) + "\x4D\xFF\xE8\xE0", 180'000},
        // Too small for a trailer, which goes where it can; and without any room.
        {8, 15, "", 0, 1, {8},
         then(block_0, {"seek -16 failed", "write 8+16", "sync", "sleep 100000", "close"}), no_seek,
         "ABCDEFGH", 140'000},
        {8, 8, "", 0, 1, {8}, {},
         no_seek + "partition checksum write error: No space left on device\n\n", "ABCDEFGH",
         140'000},
    };
    // clang-format on
    for (const auto &row : rows) {
        SCOPED_TRACE(std::to_string(row.length) + row.faults + std::to_string(row.partition));
        simulated_platform platform(2, row.partition, row.faults);
        progress told{.stop_at = row.stop_at};
        blocks blocks;
        testing::internal::CaptureStderr();
        const int fd = open("/dev/fla2", O_WRONLY);
        EXPECT_EQ(
            write_blocks(fd, blocks.table.data(), block_size, row.length, count_progress, &told),
            row.result);
        close(fd);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.said);
        EXPECT_EQ(told.counts, row.counts);
        EXPECT_EQ(row.operations.empty() ? texts() : platform.operations, row.operations);
        EXPECT_EQ(platform.content(2).substr(0, row.content.size()), row.content);
        EXPECT_EQ(clock_virtual_us(), row.virtual_us);
    }
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
        for (const std::string &operation :
             platform.operations) // always a whole block is asked for
            EXPECT_TRUE(!operation.starts_with("read") || operation.find("+8") != std::string::npos)
                << operation;
        close(fd);
    }
}

} // namespace
