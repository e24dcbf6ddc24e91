// SPDX-License-Identifier: GPL-2.0-or-later
//
// The package in the block buffer: its table, and the seal of its blocks. Headers, digests, the
// dump, the cipher and which keys and lengths count are shown on whole runs.
#include "package/package.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "flash/crc32.h"
#include "flash/flash.h"
#include "package/decrypt.h"

using namespace std::string_literals;

namespace {

constexpr int block_size = 4096;

std::vector<uint8_t> block_of(const std::string &bytes)
{
    std::vector<uint8_t> block(block_size);
    memcpy(block.data(), bytes.data(), bytes.size());
    return block;
}

// The 22 bytes of an entry without conditions, then whatever `rest` says.
std::string entry_of(int header_size, const std::string &conditions_length, const std::string &rest)
{
    return std::string{static_cast<char>(header_size >> 8), static_cast<char>(header_size)} +
           "\x02\x07\0\0\1\2\0\0\1\1\0\0\x10\0\0\0\0\1"s + conditions_length + rest;
}

const std::string head = "\xDB\xAD\x47\x5E\0\1\0\1\0\0\x20\x05"
                         "0123456789abcdef"s;

} // namespace

TEST(PackageParts, FindTheVariableFields)
{
    // The features length word stands behind the conditions, padded to a multiple of four with
    // their own length word.
    const struct {
        int conditions_length;
        int features_word;
    } rows[] = {{0, 24}, {1, 24}, {2, 24}, {3, 28}, {6, 28}, {7, 32}};
    for (const auto &row : rows) {
        std::string entry = entry_of(40, {'\0', static_cast<char>(row.conditions_length)}, "");
        entry.resize(static_cast<size_t>(row.features_word), 'c');
        const auto block = block_of(entry + "\0\2xy"s);
        package_part part = {};
        ASSERT_EQ(read_part(&part, block.data(), block_size), 40);
        EXPECT_EQ(part.conditions, block.data() + 22);
        EXPECT_EQ(part.features_length, 2);
        EXPECT_EQ(part.features, block.data() + row.features_word + 2);
    }
}

TEST(PackageParts, RefuseWhatDoesNotLieInTheBlock)
{
    const std::string invalid = "invalid size\n";
    const struct {
        const char *what;
        std::string entry;
        int remaining;
        std::string message; ///< empty: what ends exactly where the bytes do is read
        int result = -1;
    } rows[] = {
        {"beyond the block", "\0\0\0\0"s, -70'000, invalid},
        {"three bytes", "\0\0\0\0"s, 3, invalid},
        {"end mark", "\0\0\0\0"s, 4, "", 0},
        {"header size 1", "\0\1\0\0"s, 4, "invalid part header size: 1\n"},
        {"header size 19", "\0\x13\0\0"s, 4, "invalid part header size: 19\n"},
        // Accepted: its length words are the next entry's bytes.
        {"header size 20", entry_of(20, "\0\0"s, "\0\0\0\3"s), 30, "", 20},
        {"fixed fields", entry_of(26, "\0\0"s, ""), 21, invalid},
        {"features length word", entry_of(26, "\0\0"s, "\0\0\0\0"s), 25, invalid},
        {"no features", entry_of(26, "\0\0"s, "\0\0\0\0"s), 26, "", 26},
        {"conditions", entry_of(26, "\xFF\xFF"s, ""), 60, invalid},
        {"features", entry_of(26, "\0\0"s, "\0\0\0\3"s), 28, invalid},
        {"all features", entry_of(26, "\0\0"s, "\0\0\0\3abc"s), 29, "", 26},
    };
    for (const auto &row : rows) {
        // A copy of the exact size, so that the sanitizer sees a read beyond the end.
        std::string entry = row.entry;
        entry.resize(static_cast<size_t>(std::max(row.remaining, 0)));
        const std::vector<uint8_t> bytes(entry.begin(), entry.end());
        package_part part = {};
        testing::internal::CaptureStderr();
        EXPECT_EQ(read_part(&part, bytes.data(), row.remaining), row.result) << row.what;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.message) << row.what;
    }
    // The same through the table: an entry that ends three bytes before the block does.
    package record;
    init_package_struct(&record);
    const auto block = block_of(head + entry_of(block_size - 28 - 3, "\0\0"s, "\0\0\0\0"s));
    EXPECT_EQ(read_package_parts(&record, block.data(), block_size), -1);
    EXPECT_EQ(read_package_parts(&record, block_of(head).data(), 27), -1);
}

TEST(BlockBuffer, SealsBlocksOnCommitAndBehindTheCipher)
{
    EXPECT_EQ(iobuf_create(4096, 0), nullptr);
    iobuf *buffer = iobuf_create(4096, 2);
    uint8_t *first = iobuf_request(buffer);
    EXPECT_EQ(iobuf_request(buffer), first);
    EXPECT_EQ(iobuf_commit(buffer), 0);
    EXPECT_DEATH(first[0] = 1, "");
    uint8_t *second = iobuf_request(buffer);
    EXPECT_EQ(iobuf_commit(buffer), 0);
    EXPECT_EQ(iobuf_request(buffer), nullptr); // full
    EXPECT_EQ(iobuf_commit(buffer), 0);
    EXPECT_EQ(buffer->current, 2);
    package record = {};
    record.size = 4097;
    EXPECT_EQ(cipher_package(&record, buffer, "k"), 0);
    EXPECT_DEATH(second[0] = 1, "");
    free(buffer);
}

TEST(Flash, EndsWithoutATrailerWhenItIsStoppedAndReportsAShortRead)
{
    std::vector<uint8_t> block(block_size, 'b');
    uint8_t *const blocks[] = {block.data(), block.data()};
    const int fd = memfd_create("flash", 0);
    const auto stop = [](void *, int) { return 0; };
    EXPECT_EQ(write_blocks(fd, blocks, block_size, 2 * block_size, stop, nullptr), 0);
    EXPECT_EQ(lseek(fd, 0, SEEK_END), block_size);
    EXPECT_EQ(ftruncate(fd, block_size - 1), 0);
    lseek(fd, 0, SEEK_SET);
    errno = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(verify_blocks(fd, blocks, block_size, 2 * block_size, nullptr, nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "read block #0 failed: Success\n");
    close(fd);
    EXPECT_EQ(crc32(7, nullptr, 1), 0U);
}
