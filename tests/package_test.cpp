// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/package.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

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

TEST(PackageDump, NamesEveryType)
{
    const char *const names[] = {"image",     "unknown<1>", "kernel",    "base", "app",
                                 "unkown<5>", "unkown<6>",  "unkown<7>", "bios", "unknown<9>"};
    for (int type = 0; type < 10; type++) {
        package record;
        init_package_struct(&record);
        const auto block = block_of(head);
        ASSERT_EQ(read_package_head(&record, block.data(), block_size), 0);
        record.parts[0].type = type;
        testing::internal::CaptureStdout();
        dump_package(&record);
        const std::string dump = testing::internal::GetCapturedStdout();
        EXPECT_NE(dump.find("  part #0:\n    type: "s + names[type] + "\n"), std::string::npos)
            << dump;
        EXPECT_EQ(dump.find("part #1"), std::string::npos);
    }
}

// The header and the rest of the dump are compared on whole runs.
TEST(PackageParts, AreReadUpToTheEndMarkOrTheEighth)
{
    const auto entry = entry_of(26, "\0\0"s, "\0\0\0\0"s);
    std::string table;
    for (int count = 0; count <= 9; count++) {
        package record;
        init_package_struct(&record);
        EXPECT_EQ(read_package_parts(&record, block_of(head + table).data(), block_size),
                  std::min(count, 8));
        table += entry;
    }
    package record;
    EXPECT_EQ(read_package_parts(&record, block_of(head).data(), 27), -1);
}

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
        entry += "\0\2xy"s;
        const auto block = block_of(entry);
        package_part part = {};
        ASSERT_EQ(read_part(&part, block.data(), block_size), 40);
        EXPECT_EQ(part.conditions, block.data() + 22);
        EXPECT_EQ(part.features_length, 2);
        EXPECT_EQ(part.features, block.data() + row.features_word + 2);
    }
    package_part part = {};
    // An entry of 20 bytes is accepted: its length words are the next entry's bytes.
    ASSERT_EQ(read_part(&part, block_of(entry_of(20, "\0\0"s, "\0\0\0\3"s)).data(), block_size),
              20);
    EXPECT_EQ(part.type, 2);
    EXPECT_EQ(part.compress, 7U);
    EXPECT_EQ(part.actual_size, 0x102U);
    EXPECT_EQ(part.size, 0x101U);
    EXPECT_EQ(part.offset, 0x1000U);
    EXPECT_EQ(part.flags, 1U);
    EXPECT_EQ(part.features_length, 3);
}

TEST(PackageParts, RefuseWhatDoesNotLieInTheBlock)
{
    const std::string invalid = "invalid size\n";
    const struct {
        const char *what;
        std::string entry;
        int remaining;
        std::string message;
    } rows[] = {
        {"nothing", "\0\0\0\0"s, 0, invalid},
        {"beyond the block", "\0\0\0\0"s, -70'000, invalid},
        {"three bytes", "\0\0\0\0"s, 3, invalid},
        {"header size 1", "\0\1\0\0"s, 4, "invalid part header size: 1\n"},
        {"header size 19", "\0\x13\0\0"s, 4, "invalid part header size: 19\n"},
        {"fixed fields", entry_of(26, "\0\0"s, ""), 21, invalid},
        {"features length word", entry_of(26, "\0\0"s, "\0\0\0\0"s), 25, invalid},
        {"conditions", entry_of(26, "\xFF\xFF"s, ""), 60, invalid},
        {"features", entry_of(26, "\0\0"s, "\0\0\0\3"s), 28, invalid},
    };
    for (const auto &row : rows) {
        // A copy of the exact size, so that the sanitizer sees a read beyond the end.
        std::vector<uint8_t> bytes(row.entry.begin(), row.entry.end());
        bytes.resize(static_cast<size_t>(std::max(row.remaining, 0)));
        package_part part = {};
        testing::internal::CaptureStderr();
        EXPECT_EQ(read_part(&part, bytes.data(), row.remaining), -1) << row.what;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.message) << row.what;
    }
    // What ends exactly where the bytes do is read.
    const struct {
        std::string entry;
        int remaining, result;
    } exact[] = {
        {"\0\0\0\0"s, 4, 0},
        {entry_of(26, "\0\0"s, "\0\0\0\0"s), 26, 26},
        {entry_of(26, "\0\0"s, "\0\0\0\3abc"s), 29, 26},
    };
    for (const auto &row : exact) {
        const std::vector<uint8_t> bytes(row.entry.begin(), row.entry.begin() + row.remaining);
        package_part part = {};
        EXPECT_EQ(read_part(&part, bytes.data(), row.remaining), row.result) << row.remaining;
    }
    // The same through the table: an entry that ends three bytes before the block does.
    package record;
    init_package_struct(&record);
    const auto block = block_of(head + entry_of(block_size - 28 - 3, "\0\0"s, "\0\0\0\0"s));
    testing::internal::CaptureStderr();
    EXPECT_EQ(read_package_parts(&record, block.data(), block_size), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), invalid + "error while reading part info\n");
}
