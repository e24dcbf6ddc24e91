// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>
#include <sstream>

#include "package/conditions.h"
#include "tools/fwpkg/checker.h"
#include "tools/fwpkg/condition_report.h"
#include "tools/fwpkg/extractor.h"
#include "tools/fwpkg/failure.h"
#include "tools/fwpkg/files.h"
#include "tools/fwpkg/maker.h"
#include "tools/fwpkg/overlap.h"
#include "tools/fwpkg/plan_report.h"
#include "tools/fwpkg/traps.h"

using namespace fwpkg;
using namespace std::string_literals;
using bytes = std::vector<uint8_t>;

namespace {

bytes bytes_of(const std::string &text)
{
    return {text.begin(), text.end()};
}

/// A folder with a manifest and its files, gone with the test.
struct maker_folder {
    std::filesystem::path path;
    maker_folder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "fwpkg.XXXXXX").string();
        path = mkdtemp(name.data());
    }
    maker_folder(const maker_folder &) = delete;
    maker_folder &operator=(const maker_folder &) = delete;
    ~maker_folder()
    {
        std::filesystem::remove_all(path);
    }

    void add(const std::string &name, const std::string &content) const
    {
        std::ofstream(path / name, std::ios::binary) << content;
    }
    bytes make(const std::string &text, const std::optional<std::string> &key = {}) const
    {
        add("m.toml", text);
        return make_package(read_manifest(path / "m.toml"), key);
    }
    /// The failure's line without the folder, empty when there is none.
    std::string failure_of(const std::string &text) const
    {
        try {
            make(text);
        } catch (const failure &error) {
            return std::regex_replace(std::string(error.what()), std::regex(path.string() + "/"),
                                      "");
        }
        return {};
    }
};

std::string lines_of(const std::vector<finding> &findings)
{
    std::string lines;
    for (const finding &finding : findings)
        lines += finding_text(finding, false);
    return lines;
}

std::string lines_of(const std::vector<std::string> &sentences)
{
    std::string lines;
    for (const std::string &sentence : sentences)
        lines += sentence + "\n";
    return lines;
}

// One app part without data, conditions and features, worked out by hand: 60 bytes. Digest and
// ciphered bytes come from another implementation of MD5 and RC4.
const std::string short_entry =
    "\0\x1C\4\7\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"s;
const std::string short_clear =
    "\xDB\xAD\x47\x5E\0\1\0\0\0\0\0\x3C"
    "\xC1\x5B\x28\x4B\xA3\x81\x17\x22\xC6\xE9\x65\x7D\xF6\x6A\x62\xE7"s +
    short_entry;
const std::string short_ciphered =
    "\xDB\xAD\x47\x5E\0\1\0\1\0\0\0\x3C"
    "\xED\x24\xE1\x1A\x1B\xD1\x39\xAE\x79\x2E\x90\xA0\xBD\xC0\x47\x96"
    "\xEB\x83\x73\x86\xB7\x34\xCB\x72\xA7\x19\x4A\x28\x67\xB6\x42\x95"
    "\x0D\x5D\x4C\x26\x52\x17\x7B\x9E\x7A\x82\x15\xEC\x54\xAB\x50\x3E"s;
const std::string short_manifest =
    "[[part]]\ntype='app'\nfile='empty'\nactual_size=256\ncompress=7\n";

std::string read_page()
{
    std::ifstream file(PROJECT_FOLDER "/docs/package-format.md");
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The bytes of the page's listing: lines of a position and bytes, two blanks before any words.
bytes listed_bytes(const std::string &page)
{
    bytes result;
    const std::regex line("\n([0-9a-f]{4})  (([0-9a-f]{2} ?)+)");
    for (std::sregex_iterator i(page.begin(), page.end(), line), end; i != end; ++i) {
        const size_t position = std::stoul((*i)[1], nullptr, 16);
        EXPECT_GE(position, result.size()) << "lines overlap at " << (*i)[1];
        result.resize(position);
        std::istringstream words((*i)[2]);
        for (std::string word; words >> word;)
            result.push_back(static_cast<uint8_t>(std::stoul(word, nullptr, 16)));
    }
    return result;
}

} // namespace

TEST(Maker, MakesTheFormatPagesExample)
{
    const std::string page = read_page();
    std::smatch manifest;
    ASSERT_TRUE(std::regex_search(page, manifest, std::regex("```toml\n([^`]*)```")));
    const maker_folder folder;
    folder.add("zImage", "hello, kernel\n");
    const bytes made = folder.make(manifest[1]);
    EXPECT_EQ(made, listed_bytes(page));
    EXPECT_EQ(made.size(), 4110U);
}

TEST(Maker, CoversTheTailOfAShortPackage)
{
    const maker_folder folder;
    folder.add("empty", "");
    EXPECT_EQ(folder.make(short_manifest), bytes_of(short_clear));
    EXPECT_EQ(folder.make("[package]\nencrypt=true\n" + short_manifest, "Key"),
              bytes_of(short_ciphered));
}

TEST(Maker, PlacesDataOnBlocksAndNothingBehindTheLast)
{
    const maker_folder folder;
    folder.add("one", std::string(4097, 'x'));
    folder.add("two", "y");
    folder.add("none", "");
    const auto part = [](const std::string &file) {
        return "[[part]]\ntype=3\nfile='" + file + "'\n";
    };
    const bytes made = folder.make(part("one") + part("none") + part("two"));
    const package_file file = open_package(made, {});
    EXPECT_EQ(file.problem, "");
    EXPECT_TRUE(file.digest_right);
    ASSERT_EQ(file.parts.size(), 3U);
    EXPECT_EQ(file.parts[0].part.offset, 4096U);
    EXPECT_EQ(file.parts[1].part.offset, 0U);
    EXPECT_EQ(file.parts[2].part.offset, 12288U);
    EXPECT_EQ(made.size(), 12289U);
    EXPECT_EQ(made.back(), 'y');
    const auto extracted = extract_parts(file);
    ASSERT_EQ(extracted.size(), 2U);
    EXPECT_EQ(extracted[0].name, "0-base.bin");
    EXPECT_EQ(extracted[0].data, bytes(4097, 'x'));
}

TEST(Maker, SaysWhereAndHowMany)
{
    const maker_folder folder;
    folder.add("data", std::string(100, 'x'));
    folder.add("large", std::string(3'000'000, 'x'));
    const std::string part = "[[part]]\ntype='app'\nfile='data'\n";
    std::string nine;
    for (int i = 0; i < 9; i++)
        nine += part;
    const struct {
        std::string manifest;
        std::string line;
    } rows[] = {
        {"", "m.toml: no [[part]]"},
        {"part = 1", "m.toml:1: \"part\" must be tables: [[part]]"},
        {"package = 1\n" + part, "m.toml:1: \"package\" must be a table: [package]"},
        {"[package]\nencript=true\n" + part, "m.toml:2: unknown key \"encript\" in [package]"},
        {"[packages]\n" + part, "m.toml:1: unknown key \"packages\" in the manifest"},
        {part + "files='x'\n", "m.toml:4: unknown key \"files\" in part 0"},
        {part + part + "optional=1\n", "m.toml:7: \"optional\" must be true or false"},
        {part + "actual_size=4294967296\n", "m.toml:4: \"actual_size\" is 4294967296, must be a "
                                            "number from 0 to 4294967295"},
        {part + "compress=-1\n", "m.toml:4: \"compress\" is -1, must be a number from 0 to 255"},
        {part + "features={ram=64}\n", "m.toml:4: \"ram\" must be a text"},
        {"[[part]]\ntype='unknown'\n", "m.toml:2: \"unknown\" is not the name of a part type"},
        {"[[part]]\ntype=256\n", "m.toml:2: \"type\" is 256, must be a number from 0 to 255"},
        {"[[part]]\ntype=2\n", "m.toml:1: part 0 has no \"file\""},
        {"[[part]]\ntype=2\nfile='gone'\n",
         "m.toml:1: part 0: gone: cannot open: No such file or directory"},
        {nine, "m.toml:25: 9 parts, a package holds at most 8"},
        {part + "conditions='a=1 b: =2'\n",
         "m.toml:1: part 0: conditions: \"a=1 b: =2\" cannot be read from column 5 on (\"b: =2\"): "
         "a "
         "name is followed by an optional \":\" and, directly behind it, one of = != > >= < <=; a "
         "quoted value needs its closing quote"},
        {part + "conditions='a=\"x'\n",
         "m.toml:1: part 0: conditions: \"a=\"x\" cannot be read from "
         "column 3 on (\"\"x\"): a quoted value has no closing quote"},
        // 28 + 20 + 4 + 2 + 4040 + 4 for the end, rounded up to a multiple of four.
        {part + "features={a='" + std::string(4037, 'x') + "'}\n",
         "m.toml: the part table would end at byte 4100, the first block at 4096 (1 part)"},
        {"[[part]]\ntype=2\nfile='large'\n[[part]]\ntype=3\nfile='large'\n",
         "m.toml:4: part 1: large would end at byte 6006464, a package holds at most 4096000"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(folder.failure_of(row.manifest), row.line);
    EXPECT_EQ(folder.failure_of(part + "features={a='" + std::string(4033, 'x') + "'}\n"), "");
    EXPECT_NE(folder.failure_of("[[part\n").find("m.toml:1: "), std::string::npos);
}

TEST(Files, AreWrittenWholeOrNotAtAll)
{
    const maker_folder folder;
    folder.add("old", "old");
    std::filesystem::create_symlink("old", folder.path / "link");
    write_file(folder.path / "link", bytes_of("new"));
    EXPECT_EQ(read_file(folder.path / "old", 3), bytes_of("new"));
    EXPECT_TRUE(std::filesystem::is_symlink(folder.path / "link"));
    EXPECT_THROW(write_file(folder.path, bytes_of("x")), failure);
    EXPECT_THROW(write_file(folder.path / "gone" / "x", bytes_of("x")), failure);
    EXPECT_THROW(read_file(folder.path / "old", 2), failure);
    const auto left = std::filesystem::directory_iterator(folder.path);
    EXPECT_EQ(std::distance(begin(left), end(left)), 2) << "no temporary file stays";
    for (const auto &[content, key] : {std::pair{"k\n\n"s, "k\n"s}, {""s, ""s}, {"k"s, "k"s}}) {
        folder.add("key", content);
        EXPECT_EQ(read_key_file(folder.path / "key"), key);
    }
    folder.add("key", "k\0y"s);
    EXPECT_THROW(read_key_file(folder.path / "key"), failure);
}

TEST(PackageFile, ReadsWhatWasWorkedOutByHand)
{
    for (const bool ciphered : {false, true}) {
        const auto content = bytes_of(ciphered ? short_ciphered : short_clear);
        const package_file file = open_package(content, "Key");
        EXPECT_EQ(file.problem, "");
        EXPECT_TRUE(file.length_right && file.digest_right);
        ASSERT_EQ(file.parts.size(), 1U);
        EXPECT_EQ(file.parts[0].part.type, 4);
        EXPECT_EQ(file.parts[0].part.actual_size, 256U);
        EXPECT_EQ(file.table_end, 56U);
    }
}

TEST(PackageFile, SaysWhyItReadsNoFurther)
{
    const auto with = [](std::string content, size_t position, char byte) {
        content[position] = byte;
        return content;
    };
    const struct {
        std::string content;
        std::optional<std::string> key;
        read_stage stage;
        std::string problem;
    } rows[] = {
        {"", {}, read_stage::nothing, "the file is empty"},
        {"\xDB\xAD\x47", {}, read_stage::nothing, "not a package: Bad magic: dbad4700"},
        {with(short_clear, 5, 2), {}, read_stage::nothing, "not a package: Bad version: 2"},
        {with(short_clear, 7, 2), {}, read_stage::head, "unknown encryption 2"},
        {short_ciphered, {}, read_stage::head, "enciphered, and no key is given"},
        {short_ciphered + "x", "Key", read_stage::head,
         "not deciphered, since the length is wrong"},
        {short_ciphered, "key", read_stage::deciphered,
         "the digest is wrong: another key, or damaged"},
        {with(short_clear, 29, 19),
         {},
         read_stage::table,
         "part 0 at byte 28 cannot be read: invalid part header size: 19"},
    };
    for (const auto &row : rows) {
        testing::internal::CaptureStderr();
        const package_file file = open_package(bytes_of(row.content), row.key);
        EXPECT_EQ(file.stage, row.stage) << row.problem;
        EXPECT_EQ(file.problem, row.problem);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_FALSE(package_text(file, "x").empty());
        EXPECT_FALSE(json_text(package_json(file, "x")).empty());
    }
}

TEST(ConditionCode, BecomesTextThatCompilesToTheSameBytes)
{
    const struct {
        std::string code;
        std::string text;
        bool exact;
    } rows[] = {
        {"", "", true},
        {"\xFF", "", true},
        {"\x0Bram\00064\0\x12\0board\0rev2\0\xFF"s, "ram:>=64 & board=rev2", true},
        {"\x13\x10\5a\0=v\0\xFF\x11\1_-1\0=5\0\xFF"s, "( ! a!==v ) | _-1> =5", true},
        {"\0a\0\"x y\0\0b\0'\"\0\xFF"s, "a=\"x y\" b='\"'", true},
        {"\0a\0001)\0\xFF\0b\0\0\xFF"s, "a=1) ) b=", true},
        {"\0a\0caf\xC3\xA9\0\xFF"s, "a=caf\xC3\xA9", true},
        {"\0a\0\0\x12\0b\0001\0\xFF"s, "a=\\0 & b=1", false}, // empty in the middle
        {"\0a\0x y\0\xFF"s, "a=x\\x20y", false},
        {"\0a\0\"x\"y\0\xFF"s, "a=\"x\"y", false},
        {"\0a\0\x1B[1m\0\xFF"s, "a=\\x1b[1m", false}, // not to reach a terminal
        {"\0a\0\xE2\x80\xAE\0\xFF"s, "a=\\xe2\\x80\\xae", false},
        {"\0001 a\0x\0\xFF"s, "\\x31\\x20a=x", false},
        {"\0\0x\0\xFF"s, "\\0=x", false},
        {"\6\0a\0x\0\xFF"s, "\\x06 a=x", false},
        {"\0a\0x\0"s, "a=x", false}, // does not end
        {"\0a\0x"s, "a=x", false},   // incomplete
    };
    for (const auto &row : rows) {
        const condition_text text = decompile_condition(bytes_of(row.code));
        EXPECT_EQ(text.text, row.text);
        EXPECT_EQ(text.exact, row.exact) << row.text;
    }
}

TEST(Traps, AreNamedOnceEach)
{
    const struct {
        const char *text;
        const char *traps; // beginnings, one a line
    } rows[] = {
        {"ram:>=64 & board=rev2", ""},
        {"( a=1 | b=1 ) & ! c=1", ""},
        {"a=\"x\"", "a=\"x\": the value \"\"x\" keeps its opening quote\n"},
        {"a==1", "a==1: the value \"=1\" begins with \"=\": there is no operator \"==\"\n"},
        {"(a=1)",
         "a=1): the value \"1)\" reaches up to the next blank\na \"(\" has no \")\" and\n"},
        {"a=1&b=2", "a=1&b=2: the value \"1&b=2\" reaches up\n"},
        {"a=1 | b=1 & c=1", "there is no precedence\n"},
        {"| a=1", "a leading \"|\" makes\n"},
        {"a=1 | ! b=1", "\"| !\": the last of two operators in a row counts, here \"!\" alone\n"},
        {"a=1 &", "\"&\" has nothing behind it\n"},
        {"a=1 ) b=1", "a \")\" without its \"(\" ends\n"},
        {"( ( a=1", "a \"(\" without its \")\" runs to the end\n"},
        {"a:=010", "a:=010: the value \"010\" is octal: 8\n"},
        {"a:=64M", "a:=64M: the value \"64M\" counts as 64, what follows\n"},
        {"a:=x", "a:=x: the value \"x\" has no number and counts as 0\n"},
        {"a:=0xffffffff", "a:=0xffffffff: the value \"0xffffffff\" overflows 32 bits and counts as "
                          "2147483647\n"},
        {"a>9", "a>9: compares as text\n"},
    };
    for (const auto &row : rows) {
        std::istringstream found(
            lines_of(condition_traps(list_condition(compile_condition(row.text, "x")))));
        std::istringstream expected(row.traps);
        std::string line;
        for (std::string beginning; std::getline(expected, beginning);) {
            EXPECT_TRUE(std::getline(found, line)) << row.text;
            EXPECT_EQ(line.substr(0, beginning.size()), beginning);
        }
        EXPECT_FALSE(std::getline(found, line)) << row.text << ": " << line;
    }
    EXPECT_EQ(lines_of(value_traps(list_condition(bytes_of("\0\xDD\0x\0"s)).at(0), {})),
              "\\xdd=x: \\xdd is unknown and counts as the empty text\n");
}

TEST(ConditionReport, ListsComparisonsAndTheResult)
{
    const condition_report report = explain_condition("b:>-1 | a=x", {{"b", "0x7fffffff"}});
    EXPECT_EQ(report.listing, "13 bytes: 09 62 00 2d 31 00 11 00 61 00 78 00 ff\n"
                              "    0  b:>-1  as numbers, with \"0x7fffffff\": does not hold\n"
                              "    6  or\n"
                              "    7  a=x  as texts, with nothing: does not hold\n"
                              "   12  close group, or end\n"
                              "result: does not hold\n");
    EXPECT_EQ(lines_of(report.traps),
              "b:>-1: the difference to the actual value \"0x7fffffff\" overflows 32 bits, so that "
              "the comparison turns round\n"
              "a=x: a is unknown and counts as the empty text\n");
}

TEST(Overlap, IsFoundWhereADeviceCanMeetBoth)
{
    const struct {
        const char *a;
        const char *b;
        overlap answer;
    } rows[] = {
        {"", "", overlap::some},
        {"board=rev1", "board=rev2", overlap::none},
        {"board=rev1", "board!=rev2", overlap::some},
        {"board=rev1", "ram:>64", overlap::some},
        {"ram:>=64", "ram:<64", overlap::none},
        {"ram:>=64", "ram:<=64", overlap::some},
        {"ram:>64", "ram:<66", overlap::some},
        {"ram:>64", "ram:<65", overlap::none},
        {"v>a", "v<ab", overlap::some},               // between the two
        {"ram:>2147483647", "ram:<0", overlap::some}, // where the difference wraps
        {"! ( a=1 | b=1 )", "a=1 | b=1", overlap::none},
        {"a=5", "a:<5", overlap::unknown},
    };
    for (const auto &row : rows) {
        const auto a = compile_condition(row.a, "a");
        const auto b = compile_condition(row.b, "b");
        EXPECT_EQ(find_overlap(a, b).answer, row.answer) << row.a << " and " << row.b;
    }
    EXPECT_EQ(
        find_overlap(compile_condition("x=1", ""), compile_condition("y=2", "")).configuration,
        (std::map<std::string, std::string>{{"x", "1"}, {"y", "2"}}));
}

namespace {

/// A package of two blocks whose one part's fields the rows below change, its digest made right.
bytes changed_package(const std::vector<std::pair<size_t, std::string>> &changes)
{
    const maker_folder folder;
    folder.add("data", std::string(3000, 'x'));
    bytes made = folder.make("[[part]]\ntype=2\nfile='data'\nconditions='a=1'\nfeatures={b='2'}\n"
                             "[[part]]\ntype=3\nfile='data'\n");
    for (const auto &[position, change] : changes)
        std::copy(change.begin(), change.end(), made.begin() + static_cast<ptrdiff_t>(position));
    const package_file file = open_package(made, {});
    std::copy(file.digest.begin(), file.digest.end(), made.begin() + package_checksum_offset);
    return made;
}

} // namespace

TEST(Checker, FindsWhatTheDeviceWouldTrust)
{
    // The first entry stands at 28: conditions length at 48, conditions at 50 to 55, features
    // length at 56, features at 58 to 61; the second entry at 64.
    const struct {
        std::vector<std::pair<size_t, std::string>> changes;
        std::string lines;
    } rows[] = {
        {{}, ""},
        {{{40, "\0\0\x10\1"s}},
         "error: part 0 (kernel): its data begins at byte 4097, the device writes from byte "
         "4096\n"},
        {{{40, "\0\0\0\0"s}},
         "error: part 0 (kernel): its data begins at byte 0, in the block of the header and the "
         "part "
         "table\n"},
        {{{36, "\0\0\x30\0"s}, {32, "\0\0\x30\0"s}},
         "error: part 0 (kernel): its data ends at byte 16384, the package at byte 11192\n"
         "error: part 0 (kernel) and part 1 (base): share the bytes 8192 to 11191\n"},
        {{{48, "\0\4"s}}, // the zero behind the value is cut off, and so is the end
         "error: part 0 (kernel) conditions: the comparison at byte 50 does not end inside the "
         "code: "
         "the device takes it all as met\n"},
        {{{50, "\6"s}},
         "warning: part 0 (kernel) conditions: byte 50 is 6, which means nothing and is skipped\n"
         "warning: part 0 (kernel) conditions: byte 51 is 97, which means nothing and is skipped\n"
         "error: part 0 (kernel) conditions: the comparison at byte 52 does not end inside the "
         "code: "
         "the device takes it all as met\n"},
        {{{56, "\0\3"s}},
         "error: part 0 (kernel) features: \"b\" has no value that ends before byte 61: the device "
         "does not find it\n"},
        {{{44, "\0\0\0\2"s}}, "warning: part 0 (kernel): flags that no device knows: 2\n"},
        {{{28, "\0\x1C"s}}, // the next entry is read inside this one
         "error: part table: part 1 at byte 56 cannot be read: invalid part header size: 4\n"
         "error: part 0 (kernel): its fields end at byte 62, its entry at byte 56\n"},
        {{{30, "\x09"s}},
         "warning: part 0 (unknown<9>): type 9 is above 8: no device takes it, and "
         "every device refuses the package\n"},
        {{{30, "\x08"s}},
         "warning: part 0 (bios): the flash writer refuses type 8: the upgrade fails "
         "on each device that takes the part\n"},
        {{{32, "\0\0\0\0"s}},
         "warning: part 0 (kernel): actual size 0: its 3000 bytes are written "
         "without a look at the partition, and do not count as progress\n"},
        {{{32, "\0\0\0\1"s}},
         "warning: part 0 (kernel): actual size 1 is less than its 3000 bytes: "
         "the room is not checked for all of them\n"},
        {{{66, "\2"s}},
         "warning: part 0 (kernel) and part 1 (kernel): both apply to a device with a=\"1\", and "
         "are "
         "written to the same partition\n"
         "warning: part 1 (kernel): not the first of its type: a device that sets kernel_features "
         "refuses the package\n"},
    };
    for (const auto &row : rows) {
        const bytes made = changed_package(row.changes);
        EXPECT_EQ(lines_of(check_package(open_package(made, {}), {})), row.lines);
    }
    bytes damaged = changed_package({});
    damaged.push_back(0);
    EXPECT_EQ(lines_of(check_package(open_package(damaged, {}), {})),
              "error: header: says 11192 bytes, the file has 11193\n");
    damaged.pop_back();
    damaged.back() ^= 1;
    EXPECT_EQ(check_package(open_package(damaged, {}), {}).size(), 1U);
    EXPECT_EQ(lines_of(check_package(open_package(bytes_of(short_clear), {}), {})),
              "warning: package: 60 bytes: below 5120 it cannot be fetched over HTTP\n");
    const device small = parse_device("[partitions]\n2=3015\n3=3016\n", "small");
    EXPECT_EQ(lines_of(check_package(open_package(changed_package({}), {}), {{"small", small}})),
              "warning: part 0 (kernel): small: its 3000 bytes and the trailer's 16 do not fit the "
              "partition of 3015 bytes\n");
}

namespace {

/// "written, dropped: reason" of the plan for the manifest's parts on the device, behind its exit
/// status.
std::string planned(const maker_folder &folder, const std::string &manifest,
                    const std::string &description, const std::optional<std::string> &key = {})
{
    const device_plan plan =
        plan_upgrade(folder.make(manifest, key), {"d", parse_device(description, "d")});
    EXPECT_EQ(plan_text(plan).find("secret"), std::string::npos);
    std::string line = plan.endless ? "endless" : std::to_string(plan.exit_status);
    line += " " + std::to_string(plan.milliseconds);
    if (plan.parts.empty())
        return line + " " + plan.reason;
    for (const planned_part &part : plan.parts)
        line += "; " + std::string(outcome_name(part.outcome)) + (part.reason.empty() ? "" : ": ") +
                part.reason;
    return line;
}

} // namespace

TEST(Planner, AnswersAsTheDeviceWould)
{
    const maker_folder folder;
    folder.add("data", std::string(5000, 'x'));
    folder.add("none", "");
    const auto part = [](const std::string &type, const std::string &rest) {
        return "[[part]]\ntype='" + type + "'\nfile='data'\n" + rest;
    };
    const std::string encrypt = "[package]\nencrypt=true\n";
    const std::string flash = "[partitions]\n2=8192\n3=8192\n4=4999\n";
    const std::string rev2 = flash + "[configuration]\nboard='rev2'\n";
    const std::string wants_b2 = flash + "[requirements]\nkernel='b:=2'\n";
    const struct {
        std::string manifest;
        std::string device;
        std::string plan;
    } rows[] = {
        {part("kernel", ""), flash, "0 2180; written"},
        {part("kernel", "conditions='board=rev1'\n"), rev2,
         "1 0; refused: its conditions are not met: board=rev1 does not hold, the value is "
         "\"rev2\""},
        {part("kernel", "conditions='board=rev1'\noptional=true\n") + part("base", ""), rev2,
         "0 2180; dropped: its conditions are not met: board=rev1 does not hold, the value is "
         "\"rev2\"; written"},
        {part("kernel", "optional=true\n") + part("kernel", "features={b='2'}\n"), wants_b2,
         "1 0; dropped: the device's requirement is not met: b:=2 does not hold, there is no "
         "value; "
         "refused: the device's requirement was used up by an earlier part of the type"},
        // A part that its conditions dropped uses the requirement up all the same.
        {part("kernel", "conditions='x=1'\noptional=true\n") +
             part("kernel", "features={b='2'}\noptional=true\n"),
         wants_b2,
         "0 2000; dropped: its conditions are not met: x=1 does not hold, there is no value; "
         "dropped: "
         "the device's requirement was used up by an earlier part of the type"},
        {part("kernel", ""), flash + "[requirements]\nkernel='b'\n",
         "1 0; refused: the device's requirement does not compile"},
        {part("kernel", "optional=true\n") + part("app", ""), "[partitions]\n4=4999\n",
         "1 0; dropped: cannot open target device: there is no /dev/fla2; refused: not enough "
         "space on "
         "target device: 5000 bytes needed, /dev/fla4 has 4999"},
        {part("app", "actual_size=0\n"), flash, "0 2180; written"},
        {part("app", "actual_size=0\n"), "[partitions]\n4=4096\n",
         "endless 0; refused: its 5000 bytes run over the end of /dev/fla4: that write is tried "
         "again "
         "for ever"},
        {part("app", "actual_size=0\n"), "", "2 0; refused: cannot open /dev/fla4"},
        {part("kernel", "") + part("bios", ""), flash + "8=8192\n",
         "2 540; written; refused: writing partition 8 is not supported"},
        {"[[part]]\ntype='kernel'\nfile='none'\n", flash, "0 2000; empty"},
        {"[[part]]\ntype=9\nfile='data'\noptional=true\n", flash,
         "0 2000; dropped: type 9 is above 8: no device takes it"},
        {part("kernel", ""), "[configuration]\nVENDOR_KEY='secret'\n",
         "1 0 decrypt package failed: in clear, and the device has a VENDOR_KEY"},
        {encrypt + part("kernel", ""), flash,
         "1 0 decrypt package failed: enciphered, and the device has no key"},
        {encrypt + part("kernel", ""), "[configuration]\nVENID='secret2'\n",
         "1 0 invalid package: the digest is wrong: another key, or damaged"},
        {encrypt + part("kernel", ""), flash + "[configuration]\nVENID='secret'\n",
         "0 2180; written"},
    };
    for (const auto &row : rows) {
        const bool ciphered = row.manifest.starts_with(encrypt);
        testing::internal::CaptureStderr();
        EXPECT_EQ(planned(folder, row.manifest, row.device,
                          ciphered ? std::optional<std::string>("secret") : std::nullopt),
                  row.plan);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    }
}

TEST(Planner, SeesMalformedConditionsAsMetAndMissingData)
{
    const named_device device{"d", parse_device("[partitions]\n2=8192\n3=8192\n", "d")};
    const auto plan = [&](const std::vector<std::pair<size_t, std::string>> &changes) {
        return plan_upgrade(changed_package(changes), device);
    };
    EXPECT_EQ(plan({}).exit_status, 1); // a=1 is not met
    EXPECT_EQ(plan({{48, "\0\4"s}}).exit_status, 0);
    const device_plan missing = plan({{48, "\0\4"s}, {40, "\0\0\x30\0"s}});
    EXPECT_EQ(missing.reason, "part 0 (kernel): its data is not in the package");
}
