// SPDX-License-Identifier: GPL-2.0-or-later
//
// The package in the block buffer: its table, its dump, its cipher. Headers, digests and which keys
// and lengths count are shown on whole runs.
#include "package/package.h"

#include <cstring>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "flash/crc32.h"
#include "package/decrypt.h"
#include "package/rc4.h"
#include "platform/syscfg.h"

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

std::string hex(const uint8_t *bytes, size_t size)
{
    std::string text;
    for (size_t i = 0; i < size; i++) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

} // namespace

// The device's own provider, linked in place of the default one.
extern "C" const char *getsyscfg(const char *key)
{
    return strcmp(key, "VENDOR_KEY") == 0 ? "" : "v";
}

// The rest of the dump is compared on whole runs.
TEST(PackageParts, AreReadUpToTheEndMarkOrTheEighthAndNamed)
{
    const char *const names[] = {"image",     "unknown<1>", "kernel",    "base", "app",
                                 "unkown<5>", "unkown<6>",  "unkown<7>", "bios", "unknown<9>"};
    for (const int first_type : {0, 2}) {
        for (const int count : {0, 1, 7, 9}) {
            std::string table, expected, listed, line;
            for (int i = 0; i < count; i++) {
                table += entry_of(26, "\0\0"s, "\0\0\0\0"s);
                table[table.size() - 24] = static_cast<char>(first_type + i);
                if (i < 8)
                    expected += "  part #" + std::to_string(i) +
                                ":\n    type: " + names[first_type + i] + "\n";
            }
            const auto block = block_of(head + table);
            package record;
            init_package_struct(&record);
            ASSERT_EQ(read_package_head(&record, block.data(), block_size), 0);
            EXPECT_EQ(read_package_parts(&record, block.data(), block_size), std::min(count, 8));
            testing::internal::CaptureStdout();
            dump_package(&record);
            std::istringstream dump(testing::internal::GetCapturedStdout());
            while (std::getline(dump, line))
                listed +=
                    line.starts_with("  part") || line.starts_with("    type") ? line + "\n" : "";
            EXPECT_EQ(listed, expected);
        }
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
        std::string message; ///< empty: what ends exactly where the bytes do is read
        int result = -1;
    } rows[] = {
        {"nothing", "\0\0\0\0"s, 0, invalid},
        {"beyond the block", "\0\0\0\0"s, -70'000, invalid},
        {"three bytes", "\0\0\0\0"s, 3, invalid},
        {"end mark", "\0\0\0\0"s, 4, "", 0},
        {"header size 1", "\0\1\0\0"s, 4, "invalid part header size: 1\n"},
        {"header size 19", "\0\x13\0\0"s, 4, "invalid part header size: 19\n"},
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
    testing::internal::CaptureStderr();
    EXPECT_EQ(read_package_parts(&record, block.data(), block_size), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), invalid + "error while reading part info\n");
}

// MD5 is the TLS library's, and every package of a whole run has a digest.
TEST(Primitives, GiveThePublishedResults)
{
    const auto *nine = reinterpret_cast<const uint8_t *>("123456789");
    EXPECT_EQ(crc32(0, nine, 9), 0xCBF43926U); // the check value of CRC-32
    EXPECT_EQ(crc32(crc32(0, nine, 4), nine + 4, 5), 0xCBF43926U);
    EXPECT_EQ(crc32(7, nullptr, 3), 0U);
    rc4_state state;
    uint8_t bytes[16] = {};
    rc4_setup(&state, reinterpret_cast<const uint8_t *>("\1\2\3\4\5"), 5);
    rc4_crypt(&state, bytes, 7);
    rc4_crypt(&state, bytes + 7, 9);
    EXPECT_EQ(hex(bytes, 16), "b2396305f03dc027ccc3524a0a1118a8"); // RFC 6229, 40 bit key
}

TEST(DecryptPackage, DeciphersFromTheTableOnAndTheTailOfTheFirstBlock)
{
    // Zeros become the key stream: of the key byte 00 for an empty key.
    const struct {
        int size;
        int end; // of what is deciphered
    } rows[] = {{29, 32}, {32, 32}, {33, 33}, {64, 64}, {65, 65}};
    const std::string stream =
        "de188941a3375d3a8a061e67576e926dc71a7fa3f0cceb97452b4d3227965f9ea8cc75076d";
    for (const auto &row : rows) {
        // In blocks of 32 bytes, committed as a download leaves them.
        iobuf *buffer = iobuf_create(32, 8);
        for (; buffer->total < row.size; buffer->total += std::min(32, row.size - buffer->total)) {
            iobuf_request(buffer);
            iobuf_commit(buffer);
        }
        package record = {};
        record.encryp = 1;
        record.size = static_cast<uint32_t>(row.size);
        testing::internal::CaptureStderr();
        ASSERT_EQ(decrypt_package(nullptr, &record, buffer), 0);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "decrypt using: \n");
        std::string bytes;
        for (int i = 0; i < buffer->current; i++)
            bytes += hex(buffer->blocks[i], 32);
        std::string expected(bytes.size(), '0');
        const auto length = static_cast<size_t>(row.end - 28) * 2;
        expected.replace(56, length, stream, 0, length);
        EXPECT_EQ(bytes, expected) << row.size;
        free(buffer);
    }
}

TEST(BlockBuffer, SealsBlocksOnCommitAndBehindTheCipher)
{
    EXPECT_EQ(iobuf_create(4096, 0), nullptr);
    EXPECT_EQ(iobuf_create(4096, -5), nullptr);
    iobuf *buffer = iobuf_create(4096, 2);
    uint8_t *first = iobuf_request(buffer);
    EXPECT_EQ(iobuf_request(buffer), first);
    EXPECT_EQ(buffer->blocks[1], nullptr);
    first[4095] = 7;
    EXPECT_EQ(iobuf_commit(buffer), 0);
    EXPECT_EQ(first[4095], 7);
    EXPECT_DEATH(first[0] = 1, "");
    uint8_t *second = iobuf_request(buffer);
    EXPECT_NE(second, first);
    EXPECT_EQ(second[0], 0);
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
