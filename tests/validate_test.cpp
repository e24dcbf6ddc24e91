// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/decrypt.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "flash/crc32.h"
#include "package/rc4.h"
#include "platform/syscfg.h"

namespace {

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

// Which keys and lengths count is shown on whole runs.
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
        EXPECT_DEATH(buffer->blocks[buffer->current - 1][0] = 1, ""); // sealed again
        free(buffer);
    }
}
