// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the host tools have in common.
#include <gtest/gtest.h>
#include <iterator>

#include "tests/fwpkg_support.h"
#include "tools/common/files.h"
#include "tools/common/key.h"
#include "tools/device/device.h"

using namespace std::string_literals;

TEST(Files, AreWrittenWholeOrNotAtAll)
{
    const maker_folder folder{{"old", "old"}};
    std::filesystem::create_symlink("old", folder.path / "link");
    write_file(folder.path / "link", "new");
    EXPECT_EQ(read_bytes(folder.path / "old", 3), bytes_of("new"));
    EXPECT_TRUE(std::filesystem::is_symlink(folder.path / "link"));
    EXPECT_THROW(write_file(folder.path, "x"), failure);
    const auto left = std::filesystem::directory_iterator(folder.path);
    EXPECT_EQ(std::distance(begin(left), end(left)), 2) << "no temporary file stays";
}

TEST(Key, IsReadAsItStandsAndItsOdditiesAreNamed)
{
    const maker_folder folder{{"key", "k\n\n"}};
    EXPECT_EQ(read_key_file(folder.path / "key"), "k\n");
    folder.add("key", "k\0y"s);
    EXPECT_THROW(read_key_file(folder.path / "key"), failure);
    const std::pair<const char *, const char *> rows[] = {
        {"a b\xC3\xA9 cd", ""}, // blanks and other bytes inside are no slip
        {"", "the key is empty: devices decipher with the single byte 0\n"},
        {"1", "the key has 1 character: fewer than 8 are soon tried\n"},
        {"\n12345678", "the key begins or ends with a line end, which is part of it\n"},
        {"1234\x1B[m8", "the key has a control character in it\n"},
        {"1234567\r", "the key begins or ends with a line end, which is part of it\n"
                      "the key has 7 characters without that: fewer than 8 are soon tried\n"},
    };
    for (const auto &[key, oddities] : rows)
        EXPECT_EQ(joined(key_oddities(key)), oddities) << key;
}

TEST(Device, IsDescribedWithinItsLimits)
{
    for (const char *good :
         {"[partitions]\n0=16\n9=4294967296", "[script]\nstatus=255\nseconds=86400",
          "[configuration]\na='#'\n'a#'=''\nVENDOR_KEY_FILE='is not looked for'"})
        EXPECT_NO_THROW(parse_device(good, "d", key_files::left)) << good;
    for (const char *bad :
         {"[partitions]\n2=15", "[partitions]\n2=4294967297", "[partitions]\n10=99",
          "[script]\nstatus=256", "[script]\nseconds=86400.5", "[script]\nseconds=-0.1",
          "[configuration]\n'a=b'='x'", "[configuration]\na=\"x\\ny\"", "[configuration]\na=1",
          "[requirements]\nkernels='a=1'"})
        EXPECT_THROW(parse_device(bad, "d", key_files::left), failure) << bad;
}
