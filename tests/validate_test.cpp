// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/validate.h"

#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <string>

#include "flash/crc32.h"
#include "package/md5.h"
#include "package/rc4.h"
#include "platform/syscfg.h"

using namespace std::string_literals;

namespace {

std::map<std::string, std::string> configuration;

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

std::string md5_of(const std::string &text)
{
    MD5_context context;
    MD5Init(&context);
    for (const char c : text) // a byte at a time: the context carries over
        MD5Update(&context, reinterpret_cast<const uint8_t *>(&c), 1);
    uint8_t digest[md5_digest_size];
    MD5Final(digest, &context);
    return hex(digest, sizeof digest);
}

// `size` bytes of zeros in blocks of 64 bytes, committed as a download leaves them.
struct downloaded {
    explicit downloaded(int size)
    {
        for (; buffer->total < size; buffer->total += std::min(64, size - buffer->total)) {
            iobuf_request(buffer);
            iobuf_commit(buffer);
        }
        record.size = static_cast<uint32_t>(size);
        record.checksum = digest;
    }
    ~downloaded()
    {
        free(buffer);
    }
    iobuf *buffer = iobuf_create(64, 8);
    package record = {};
    uint8_t digest[16] = {};
};

int quietly(int (*decrypt)(void *, const package *, iobuf *), downloaded *package,
            std::string *messages)
{
    testing::internal::CaptureStderr();
    const int result = decrypt(nullptr, &package->record, package->buffer);
    *messages = testing::internal::GetCapturedStderr();
    return result;
}

} // namespace

// The device's own provider, linked in place of the default one.
extern "C" const char *getsyscfg(const char *key)
{
    const auto found = configuration.find(key);
    return found == configuration.end() ? nullptr : found->second.c_str();
}

TEST(Primitives, GiveThePublishedResults)
{
    EXPECT_EQ(md5_of("message digest"), "f96b697d7cb7938d525a2f31aaf161d0"); // RFC 1321, A.5
    EXPECT_EQ(md5_of(""), "d41d8cd98f00b204e9800998ecf8427e");
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

TEST(DecryptPackage, JudgesEncryptionAndKeys)
{
    using keys = std::map<std::string, std::string>;
    const struct {
        uint16_t encryp;
        keys configured;
        int result;
        const char *messages;
    } rows[] = {
        {0, {}, 0, ""},
        {0, {{"VENID", "v"}}, 0, ""},
        {0, {{"VENDOR_KEY", ""}}, 0, ""},
        {0, {{"VENDOR_KEY", "k"}}, -1, ""},
        {1, {}, -1, "No key!\n"},
        {1, {{"VENID", "v"}}, 0, "decrypt using: v\n"},
        {1, {{"VENDOR_KEY", "k"}, {"VENID", "v"}}, 0, "decrypt using: k\n"},
        {1, {{"VENDOR_KEY", ""}, {"VENID", "v"}}, 0, "decrypt using: \n"},
        {2, {{"VENID", "v"}}, -1, ""},
    };
    for (const auto &row : rows) {
        downloaded package(130);
        package.record.encryp = row.encryp;
        configuration = row.configured;
        std::string messages;
        EXPECT_EQ(quietly(decrypt_package, &package, &messages), row.result);
        EXPECT_EQ(messages, row.messages);
    }
}

TEST(DecryptPackage, DeciphersFromTheTableOnAndTheTailOfTheFirstBlock)
{
    // Zeros become the key stream: of the key byte 00 for an empty key, which begins de188941.
    const struct {
        int size;
        int end; // of what is deciphered
    } rows[] = {{30, 64}, {64, 64}, {65, 65}, {128, 128}, {129, 129}};
    configuration = {{"VENDOR_KEY", ""}};
    for (const auto &row : rows) {
        downloaded package(row.size);
        package.record.encryp = 1;
        rc4_state state;
        uint8_t stream[256] = {};
        rc4_setup(&state, stream, 1);
        rc4_crypt(&state, stream, 256);
        EXPECT_EQ(hex(stream, 4), "de188941");
        std::string messages;
        ASSERT_EQ(quietly(decrypt_package, &package, &messages), 0);
        for (int i = 0; i < (row.size + 63) / 64 * 64; i++) {
            const uint8_t expected = i >= 28 && i < row.end ? stream[i - 28] : 0;
            ASSERT_EQ(package.buffer->blocks[i / 64][i % 64], expected) << row.size << " " << i;
        }
    }
}

TEST(DecryptPackage, SealsTheBlocksAgain)
{
    configuration = {{"VENID", "v"}};
    downloaded package(130);
    package.record.encryp = 1;
    std::string messages;
    ASSERT_EQ(quietly(decrypt_package, &package, &messages), 0);
    EXPECT_DEATH(package.buffer->blocks[1][0] = 1, "");
}

TEST(ValidPackage, ChecksLengthAndDigest)
{
    configuration = {{"VENID", "v"}};
    downloaded package(130); // bytes 28 to 130: 102 zeros
    memcpy(package.digest, "\xf5\xe5\x02\xb5\x57\x6c\x2c\xeb\x07\xf0\xf0\x3a\xfd\xed\xe1\xf7", 16);
    EXPECT_EQ(valid_package(nullptr, &package.record, package.buffer), 1);
    package.digest[15] ^= 1;
    testing::internal::CaptureStderr();
    EXPECT_EQ(valid_package(nullptr, &package.record, package.buffer), 0);
    package.record.size++;
    EXPECT_EQ(decrypt_venid_rc4(nullptr, &package.record, package.buffer), 0);
    EXPECT_EQ(valid_package(nullptr, &package.record, package.buffer), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Checksum error!\ndecrypt using: v\nBad package length!\nBad package length!\n");
    EXPECT_EQ(package.buffer->blocks[0][28], 0); // not deciphered
}
