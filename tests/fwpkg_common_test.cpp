// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the host tools have in common.
#include <gtest/gtest.h>
#include <iterator>

#include "tests/fwpkg_support.h"
#include "tools/common/files.h"
#include "tools/common/key.h"
#include "tools/common/near_word.h"
#include "tools/common/sha256.h"
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
    EXPECT_THROW(read_text(folder.path / "old", 2), failure);
    EXPECT_THROW(read_text("/dev/zero", 100), failure) << "the size is not known before";
}

TEST(Key, IsReadAsItStandsAndItsOdditiesAreNamed)
{
    const maker_folder folder{};
    for (const auto &[content, key] : {std::pair{"k\n\n"s, "k\n"s}, {""s, ""s}, {"k"s, "k"s}}) {
        folder.add("key", content);
        EXPECT_EQ(read_key_file(folder.path / "key"), key);
    }
    folder.add("key", "k\0y"s);
    EXPECT_THROW(read_key_file(folder.path / "key"), failure);
    const std::string line_end = "the key begins or ends with a line end, which is part of it\n";
    const std::string blank = "the key begins or ends with a blank, which is part of it\n";
    const std::string control = "the key has a control character in it\n";
    const auto few = [](const std::string &count) {
        return "the key has " + count + ": fewer than 8 are soon tried\n";
    };
    const std::pair<std::string, std::string> rows[] = {
        {"12345678", ""},
        {"a b\xC3\xA9 cdef", ""}, // blanks and other bytes inside are no slip
        {"", "the key is empty: devices decipher with the single byte 0\n"},
        {"1234567", few("7 characters")},
        {"1", few("1 character")},
        {"12345678\r", line_end},
        {"\n12345678", line_end},
        {" 12345678", blank},
        {"12345678\t", blank},
        {"1234\x1B[m8", control},
        {"1234567\x7F", control},
        {"1234567\r", line_end + few("7 characters without that")},
    };
    for (const auto &[key, oddities] : rows) {
        std::string lines;
        for (const std::string &oddity : key_oddities(key))
            lines += oddity + "\n";
        EXPECT_EQ(lines, oddities) << key;
    }
}

TEST(Device, IsDescribedWithinItsLimits)
{
    const auto fault_of = [](const std::string &text) {
        try {
            parse_device(text, "d", key_files::left);
            return std::string();
        } catch (const failure &error) {
            return std::string(error.what());
        }
    };
    for (const char *good :
         {"[partitions]\n0=16\n9=4294967296", "[script]\nstatus=255\nseconds=86400",
          "[script]\nstatus=0\nseconds=0.5\npresent=false", "[configuration]\na='#'\n'a#'=''",
          "[configuration]\nVENDOR_KEY_FILE='is not looked for'"})
        EXPECT_EQ(fault_of(good), "") << good;
    for (const char *bad :
         {"[partitions]\n2=15", "[partitions]\n2=4294967297", "[partitions]\n10=99",
          "[script]\nstatus=256", "[script]\nstatus=-1", "[script]\nseconds=86400.5",
          "[script]\nseconds=-0.1", "[script]\nseconds='1'", "[script]\npresent=1",
          "[script]\nstop=1", "[configuration]\n'#a'='x'", "[configuration]\n'a=b'='x'",
          "[configuration]\na=\"x\\ny\"", "[configuration]\na=1", "[requirements]\nkernels='a=1'",
          "script=1"})
        EXPECT_TRUE(fault_of(bad).starts_with("d:")) << bad << fault_of(bad);
}

TEST(NearWord, IsTheOneThatWasLikelyMeant)
{
    const std::vector<std::string> known = {"make", "show", "check", "plan", "condition"};
    const std::pair<const char *, const char *> rows[] = {
        {"chek", "check"},         {"ckech", "check"}, {"hceck", "check"}, {"plam", "plan"},
        {"cnodtion", "condition"}, {"shw", "show"},    {"xy", ""},         {"mkx", ""},
        {"conclusion", ""},
    };
    for (const auto &[word, meant] : rows)
        EXPECT_EQ(near_word_hint(word, known),
                  *meant == '\0' ? "" : " (did you mean \"" + std::string(meant) + "\"?)")
            << word;
}

TEST(Sha256, IsTheStandardsExample)
{
    EXPECT_EQ(sha256_text(bytes_of("abc")), // FIPS 180-4's example
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}
