// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>

#include "tests/fwpkg_support.h"
#include "tools/common/files.h"
#include "tools/fwpkg/checks.h"
#include "tools/fwpkg/maker.h"
#include "tools/fwpkg/part_data.h"
#include "tools/fwpkg/show_report.h"

using namespace fwpkg;
using namespace std::literals;

namespace {

// One app part without data, conditions and features, worked out by hand: 60 bytes. Digest and
// ciphered bytes come from another implementation of MD5 and RC4.
const std::string short_clear =
    "\xDB\xAD\x47\x5E\0\1\0\0\0\0\0\x3C"
    "\xC1\x5B\x28\x4B\xA3\x81\x17\x22\xC6\xE9\x65\x7D\xF6\x6A\x62\xE7"
    "\0\x1C\4\7\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"s;
const std::string short_ciphered =
    "\xDB\xAD\x47\x5E\0\1\0\1\0\0\0\x3C"
    "\xED\x24\xE1\x1A\x1B\xD1\x39\xAE\x79\x2E\x90\xA0\xBD\xC0\x47\x96"
    "\xEB\x83\x73\x86\xB7\x34\xCB\x72\xA7\x19\x4A\x28\x67\xB6\x42\x95"
    "\x0D\x5D\x4C\x26\x52\x17\x7B\x9E\x7A\x82\x15\xEC\x54\xAB\x50\x3E"s;
const std::string short_manifest =
    "[[part]]\ntype='app'\nfile='empty'\nactual_size=256\ncompress=7\n";

} // namespace

TEST(Maker, MakesTheFormatPagesExample)
{
    const bytes raw = read_bytes(PROJECT_FOLDER "/docs/package-format.md", 1 << 20);
    const std::string page(raw.begin(), raw.end());
    const auto between = [&page](std::string_view begin) {
        const size_t at = page.find(begin) + begin.size();
        return page.substr(at, page.find("```", at) - at);
    };
    // The page's listing: lines of a position and bytes, two blanks before any words.
    bytes listed;
    std::istringstream lines(between("are zero.\n\n```\n"));
    for (std::string line; std::getline(lines, line);) {
        listed.resize(std::stoul(line.substr(0, 4), nullptr, 16));
        std::istringstream words(line.substr(6, line.find("  ", 6) - 6));
        for (std::string word; words >> word;)
            listed.push_back(static_cast<uint8_t>(std::stoul(word, nullptr, 16)));
    }
    const maker_folder folder{{"zImage", "hello, kernel\n"}};
    EXPECT_EQ(folder.make(between("```toml\n")), listed);
}

TEST(Maker, MakesAndReadsAShortPackageWorkedOutByHand)
{
    const maker_folder folder{{"empty", ""}};
    for (const bool ciphered : {false, true}) {
        const bytes expected = bytes_of(ciphered ? short_ciphered : short_clear);
        EXPECT_EQ(ciphered ? folder.make("[package]\nencrypt=true\n" + short_manifest, "Key")
                           : folder.make(short_manifest),
                  expected);
        const package_file file = open_package(expected, "Key");
        EXPECT_TRUE(file.length_right && file.digest_right);
        ASSERT_EQ(file.parts.size(), 1U) << file.problem;
        EXPECT_EQ(file.parts[0].part.type, 4);
        EXPECT_EQ(file.parts[0].part.actual_size, 256U);
        EXPECT_EQ(file.table_end, 56U);
    }
}

TEST(Maker, PlacesDataOnBlocksAndNothingBehindTheLast)
{
    const maker_folder folder{{"one", std::string(4097, 'x')}, {"two", "y"}, {"none", ""}};
    const bytes made = folder.make("[[part]]\ntype=3\nfile='one'\nactual_size=5000\n"
                                   "[[part]]\ntype=3\nfile='none'\n[[part]]\ntype=5\nfile='two'\n");
    const package_file file = open_package(made, {});
    EXPECT_EQ(layout_text(file),
              "part  type            offset        size  actual size   room left\n"
              "0     base              4096        4097         5000         903\n"
              "1     base                 0           0            0           0\n"
              "2     unkown<5>        12288           1            1           0\n"
              "table: 112 of 4096 bytes, 3984 left\n"
              "package: 12289 of 4096000 bytes, 4083711 left, in clear\n"
              "content identifier: " +
                  content_identifier(file) + "\n");
    const auto extracted = extract_parts(file);
    ASSERT_EQ(extracted.size(), 2U);
    EXPECT_EQ(extracted[0].name, "0-base.bin");
    EXPECT_TRUE(std::ranges::equal(extracted[0].data, bytes(4097, 'x')));
    EXPECT_EQ(extracted[1].name, "2-type5.bin");
}

TEST(Maker, SaysWhereAndHowMany)
{
    const maker_folder folder{{"data", std::string(100, 'x')},
                              {"large", std::string(3'000'000, 'x')}};
    const std::string part = "[[part]]\ntype='app'\nfile='data'\n";
    const std::pair<const char *, const char *> rows[] = {
        // "%" is a part.
        {"", " no [[part]]"},
        {"[package]\nencript=true\n%", "2: unknown key \"encript\" in [package]"},
        {"%actual_size=4294967296\n",
         "4: \"actual_size\" is 4294967296, must be a number from 0 to 4294967295"},
        {"%compress=-1\n", "4: \"compress\" is -1, must be a number from 0 to 255"},
        {"%features={''='x'}\n", "4: a feature's name is empty or has a NUL"},
        {"[[part]]\ntype='unknown'\n", "2: \"unknown\" is not the name of a part type"},
        {"[[part]]\ntype=2\nfile='gone'\n",
         "1: part 0: gone: cannot be read: No such file or directory"},
        {"%%%%%%%%%", "25: 9 parts, a package holds at most 8"},
        {"%conditions='a=\"x'\n",
         "1: part 0: conditions: \"a=\"x\" cannot be read from column 3 on (\"\"x\"): a quoted "
         "value has no closing quote"},
        {"[[part]]\ntype=2\nfile='large'\n[[part]]\ntype=2\nfile='large'\n",
         "4: part 1: large would end at byte 6006464, a package holds at most 4096000"},
    };
    for (const auto &[manifest, line] : rows)
        EXPECT_EQ(folder.failure_of(replaced(manifest, "%", part)), "m.toml:"s + line);
    // 28 + 20 + 4 + 2 + 4040 + 4 for the end, rounded up to a multiple of four.
    EXPECT_EQ(folder.failure_of(part + "features={a='" + std::string(4037, 'x') + "'}\n"),
              "m.toml: the part table would end at byte 4100, the first block at 4096 (1 part)");
    folder.add("data", std::string(4'091'904, 'x')); // all that a package holds
    EXPECT_EQ(folder.failure_of(part), "");
}

TEST(PackageFile, SaysWhyItReadsNoFurther)
{
    const auto with = [](std::string content, size_t position, char byte) {
        content[position] = byte;
        return content;
    };
    using enum read_stage;
    const struct {
        std::string content;
        const char *key;
        read_stage stage;
        const char *problem;
    } rows[] = {
        {"\xDB\xAD\x47", "", nothing, "not a package: Bad magic: dbad4700"},
        {with(short_clear, 5, 2), "", nothing, "not a package: Bad version: 2"},
        {with(short_clear, 7, 2), "", head, "unknown encryption 2"},
        {short_ciphered, nullptr, head, "enciphered, and no key is given"},
        {short_ciphered + "x", "Key", head, "not deciphered, since the length is wrong"},
        {short_ciphered, "key", deciphered, "the digest is wrong: another key, or damaged"},
        {with(short_clear, 29, 19), "", table,
         "part 0 at byte 28 cannot be read: invalid part header size: 19"},
    };
    for (const auto &row : rows) {
        const package_file file = open_package(
            bytes_of(row.content), row.key ? std::optional<std::string>(row.key) : std::nullopt);
        EXPECT_EQ(file.stage, row.stage) << row.problem;
        EXPECT_EQ(file.problem, row.problem);
    }
}

namespace {

/// A package of two parts, bytes from `position` on changed, its digest made right.
bytes changed_package(size_t position, std::string_view change)
{
    bytes made = maker_folder{{"data", std::string(3000, 'x')}}.make(
        "[[part]]\ntype=2\nfile='data'\nconditions='a=1'\nfeatures={b='2'}\n"
        "[[part]]\ntype=3\nfile='data'\n");
    std::ranges::copy(change, made.begin() + static_cast<ptrdiff_t>(position));
    std::ranges::copy(open_package(made, {}).digest, made.begin() + package_checksum_offset);
    return made;
}

std::string lines_of(const std::vector<finding> &all)
{
    std::string lines;
    for (const finding &each : all)
        lines += finding_text(each, false);
    return lines;
}

/// All that is wrong or odd about a package in clear.
std::string findings_in(const bytes &made)
{
    const package_file file = open_package(made, {});
    return lines_of(check_form(file)) + lines_of(check_use(file));
}

} // namespace

TEST(Check, FindsWhatTheDeviceWouldTrust)
{
    // The first entry stands at 28: conditions length at 48, conditions at 50 to 55, features
    // length at 56, features at 58 to 61; the second entry at 64. "%" is the first part's name.
    const struct {
        size_t position;
        std::string_view change;
        const char *lines;
    } rows[] = {
        {0, "", ""},
        {40, "\0\0\x10\1"sv,
         "error: %: its data begins at byte 4097, the device writes from byte 4096\n"},
        {40, "\0\0\0\0"sv,
         "error: %: its data begins at byte 0, in the block of the header and the part table\n"},
        {32, "\0\0\x30\0\0\0\x30\0"sv,
         "error: %: its data ends at byte 16384, the package at byte 11192\n"
         "error: % and part 1 (base): share the bytes 8192 to 11191\n"},
        {32, "\0\0\x10\0\0\0\x10\0"sv, ""}, // up to the next part
        {50, "\6"sv,                        // in the place of the operator
         "warning: % conditions: byte 50 is 6, which means nothing and is skipped\n"
         "warning: % conditions: byte 51 is 97, which means nothing and is skipped\n"
         "error: % conditions: the comparison at byte 52 does not end inside the code: the device "
         "takes it all as met\n"},
        {56, "\0\3"sv,
         "error: % features: \"b\" has no value that ends before byte 61: the device does not find "
         "it\n"},
        {44, "\0\0\0\2"sv, "warning: %: flags that no device knows: 2\n"},
        {30, "\x09"sv,
         "warning: part 0 (unknown<9>): type 9 is above 8: no device takes it, and every device "
         "refuses the package\n"},
        {30, "\x08"sv,
         "warning: part 0 (bios): the flash writer refuses type 8: the upgrade fails on each "
         "device that takes the part\n"},
        {32, "\0\0\0\0"sv,
         "warning: %: actual size 0: its 3000 bytes are written without a look at the partition, "
         "and do not count as progress\n"},
        {32, "\0\0\0\1"sv,
         "warning: %: actual size 1 is less than its 3000 bytes: the room is not checked for all "
         "of them\n"},
        {66, "\2"sv,
         "warning: % and part 1 (kernel): both apply to a device with a=\"1\", and are written to "
         "the same partition\n"
         "warning: part 1 (kernel): not the first of its type: a device that sets kernel_features "
         "refuses the package\n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(findings_in(changed_package(row.position, row.change)),
                  replaced(row.lines, "%", "part 0 (kernel)"));
}

TEST(Check, WantsAlternativesOptional)
{
    const auto found = [](const std::string &second) {
        return findings_in(maker_folder{{"data", "x"}}.make(
            "[[part]]\ntype=2\nfile='data'\nconditions='a=1'\noptional=true\n"
            "[[part]]\ntype=2\nfile='data'\nconditions='a=2'\n" +
            second));
    };
    const std::string later = "warning: part 1 (kernel): not the first of its type: a device that "
                              "sets kernel_features ";
    EXPECT_EQ(found("optional=true\n"), later + "drops it\n");
    EXPECT_EQ(found(""),
              "warning: part 0 (kernel) and part 1 (kernel): exclude each other, but part "
              "1 (kernel) is not optional: a device that does not meet its conditions "
              "refuses the package\n" +
                  later + "refuses the package\n");
}

TEST(Check, KnowsWhereATableOfEightPartsEnds)
{
    std::string manifest;
    for (int part = 0; part < 7; part++)
        manifest += "[[part]]\ntype=4\nfile='none'\n";
    // 28 bytes for the header and for each of seven parts, and 26 of the last's own.
    const bytes full =
        maker_folder{{"none", ""}}.make(manifest + "[[part]]\ntype=2\nfile='none'\nfeatures={a='" +
                                        std::string(4096 - 8 * 28 - 26 - 3, 'x') + "'}\n");
    const package_file file = open_package(full, {});
    EXPECT_EQ(file.table_end, 4096U);
    EXPECT_EQ(lines_of(check_form(file)), "");
}

TEST(Extractor, TakesWholePartsAlone)
{
    for (const std::string_view wrong : {"\0\0\x10\1"sv, "\0\0\x30\0"sv}) // on no block; too far
        EXPECT_THROW(extract_parts(open_package(changed_package(40, wrong), {})), failure);
}

TEST(Check, FindsDamage)
{
    bytes damaged = changed_package(0, "");
    damaged.push_back(0);
    EXPECT_EQ(findings_in(damaged), "error: header: says 11192 bytes, the file has 11193\n");
    damaged.pop_back();
    damaged.back() ^= 1;
    EXPECT_TRUE(findings_in(damaged).starts_with("error: header: digest "));
}

TEST(Check, HoldsDevicesToTheirPartitions)
{
    const auto found = [](const std::string &device) {
        return lines_of(check_devices(changed_package(0, ""), {},
                                      {{"d", parse_device("[partitions]\n" + device, "d")}}));
    };
    const std::string a = "[configuration]\na='1'\n";
    EXPECT_EQ(found("2=3015\n3=3016\n" + a),
              "error: d: part 0 (kernel): its 3000 bytes and the trailer's 16 do not "
              "fit /dev/fla2 of 3015 bytes: the trailer overwrites its end\n");
    EXPECT_EQ(found("2=3016\n3=3016\n" + a), "");
    EXPECT_EQ(found("2=3016\n3=3016\n"),
              "error: d: package refused (exit status 1): part 0 (kernel): its conditions are not "
              "met: a=1 does not hold, there is no value\n");
    // The key that is given serves devices whose description has none.
    const bytes ciphered = bytes_of(short_ciphered);
    const auto with = [&](const std::string &key, const std::string &device) {
        return check_devices(ciphered, key, {{"d", parse_device(device, "d")}}).size();
    };
    EXPECT_EQ(with("Key", "[partitions]\n4=256\n"), 0U);
    EXPECT_EQ(with("Key", "[partitions]\n4=256\n[configuration]\nVENID='other'\n"), 1U);
}
