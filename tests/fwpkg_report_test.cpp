// SPDX-License-Identifier: GPL-2.0-or-later
//
// Plans, and the reports as people read them, whole. CRCs and digests come from other
// implementations.
#include <algorithm>
#include <gtest/gtest.h>

#include "tests/fwpkg_support.h"
#include "tools/fwpkg/difference.h"
#include "tools/fwpkg/part_data.h"
#include "tools/fwpkg/plan_report.h"
#include "tools/fwpkg/show_report.h"

using namespace fwpkg;
using namespace std::string_literals;

namespace {

const std::string before_manifest =
    "[[part]]\ntype='kernel'\nfile='x'\noptional=true\n"
    "conditions='board=rev1'\nfeatures={ram='64'}\n"
    "[[part]]\ntype='base'\nfile='y'\nactual_size=8000\ncompress=1\n";
const std::string after_manifest = "[[part]]\ntype='kernel'\nfile='z'\nconditions='board=rev1'\n"
                                   "[[part]]\ntype='app'\nfile='y'\n";
const std::string key = "vendor key";

maker_folder make_folder()
{
    return {{"x", std::string(5000, 'x')},
            {"y", std::string(4097, 'y')},
            {"z", std::string(4999, 'x') + "z"}};
}

/// What differs between two packages, their digests as "ID".
std::string compared(const bytes &a, const bytes &b, const std::vector<named_device> &devices = {})
{
    const package_file file_a = open_package(a, key);
    const package_file file_b = open_package(b, key);
    std::string text =
        difference_text(compare_packages({a, file_a}, {b, file_b}, devices), "a", "b");
    for (const package_file *file : {&file_a, &file_b})
        text = replaced(text, content_identifier(*file), "ID");
    return text;
}

} // namespace

TEST(Report, ShowsAPackageWithItsSums)
{
    const maker_folder folder = make_folder();
    bytes made = folder.make("[package]\nencrypt=true\n" + before_manifest, key);
    const auto shown = [&](const std::optional<std::string> &with) {
        return package_text(open_package(made, with), "fw\x1B", "SUM");
    };
    const std::string head = "fw\\x1b: 16385 bytes, version 1, enciphered\n"
                             "size    16385 in the header, right\n";
    const std::string parts =
        "table   2 parts, bytes 28 to 104\n"
        "\n"
        "part 0: kernel (type 2), optional\n"
        "  data         5000 bytes at 4096\n"
        "  actual size  5000\n"
        "  conditions   board=rev1\n"
        "  features     ram = \"64\"\n"
        "  CRC-32       00dbf026\n"
        "  SHA-256      c59d3c0480cc2d71d8f646e735e92da65450311eec46e81a5db8c7e6e8a92054\n"
        "\n"
        "part 1: base (type 3)\n"
        "  data         4097 bytes at 12288\n"
        "  actual size  8000\n"
        "  compress     1\n"
        "  conditions   none\n"
        "  features     none\n"
        "  CRC-32       afc6a4af\n"
        "  SHA-256      ff08f7c208970029bac126ddc0f566b9bff3df5eabb9d55731e7cfbfb5fdeed5\n";
    const std::string identifier = "17728e1e3eabac19d8e47bc09e4094b5";
    EXPECT_EQ(shown(key),
              head + "digest  " + identifier + ", right\nSHA-256 SUM of the file\n" + parts);
    EXPECT_EQ(shown({}),
              head + "digest  " + identifier + ", not looked at\nSHA-256 SUM of the file\n");
    made.back() ^= 1;
    const std::string damaged = shown(key);
    EXPECT_TRUE(damaged.starts_with(head + "digest  " + identifier + ", WRONG, the data has "));
    EXPECT_EQ(damaged.find(identifier + "\n"), std::string::npos);
    EXPECT_EQ(damaged.find("part 0"), std::string::npos) << "not read when the digest is wrong";
    made.pop_back();
    EXPECT_TRUE(shown(key).starts_with("fw\\x1b: 16384 bytes, version 1, enciphered\n"
                                       "size    16385 in the header, WRONG\n"));
}

TEST(Sums, AreOfWhatTheDeviceWrites)
{
    const bytes blocks(3 * 4096, 0);
    const struct {
        uint32_t offset, size;
        long begin; // of what is written: -1 for nothing
    } rows[] = {{8191, 4097, 4096}, {4096, 8192, 4096}, {4096, 8193, -1}, {4096, 0, -1}};
    for (const auto &row : rows) {
        package_part part{};
        part.offset = row.offset;
        part.size = row.size;
        const auto found = written_data(blocks, part);
        EXPECT_EQ(found.empty() ? -1 : found.data() - blocks.data(), row.begin) << row.size;
        EXPECT_EQ(found.size(), row.begin < 0 ? 0 : row.size);
    }
}

TEST(Report, SaysWhatEachDeviceDoes)
{
    const maker_folder folder = make_folder();
    const bytes made = folder.make(before_manifest);
    plan_maker maker(made);
    std::vector<device_plan> plans;
    for (const auto &[name, description] :
         {std::pair<std::string, std::string>{"rev1.toml",
                                              "[partitions]\n2=5000\n3=9000\n[configuration]\n"
                                              "board='rev1'\n[requirements]\nkernel='ram:<=32'\n"},
          {"small.toml", "[partitions]\n2=5000\n3=7999\n[configuration]\nboard='rev1'\n"}})
        plans.push_back(maker.plan({name, parse_device(description, name)}));
    EXPECT_EQ(plan_summary(plans), "device      result    time    kernel       base\n"
                                   "rev1.toml   upgraded  2.18 s  dropped      written\n"
                                   "small.toml  refused   -       not written  refused\n");
    EXPECT_EQ(plan_text(plans[0]),
              "rev1.toml: upgraded (exit status 0): 1 part written, 2 blocks, 2.18 s\n"
              "  part 0 (kernel): dropped: the device's requirement is not met: ram:<=32 does not "
              "hold, the value is \"64\"\n"
              "    /dev/fla2 has 5000 bytes\n"
              "    board=rev1  the device has \"rev1\": holds\n"
              "    requirement \"ram:<=32\"\n"
              "    ram:<=32  the part has \"64\": does not hold\n"
              "  part 1 (base): written to /dev/fla3, 4097 bytes in 2 blocks, 0.18 s\n"
              "    /dev/fla3 has 9000 bytes, 4887 left beside data and trailer\n");
}

TEST(Report, SaysWhatDiffers)
{
    const maker_folder folder = make_folder();
    const bytes before = folder.make(before_manifest);
    const bytes after = folder.make(after_manifest);
    const device rev1 =
        parse_device("[partitions]\n2=5016\n3=8000\n4=9000\n[configuration]\nboard='rev1'\n", "d");
    const device rev2 = parse_device("[partitions]\n3=8000\n", "d");
    EXPECT_EQ(
        compared(before, after, {{"rev1", rev1}, {"rev2", rev2}}),
        "a and b differ\n"
        "content identifier ID, now ID\n"
        "part 0 (kernel): flags 1, now 0; features ram=\"64\", now none; 1 of 2 blocks "
        "changed: 1\n"
        "part 1 (base): gone, 2 blocks\n"
        "part 1 (app): new, 2 blocks\n"
        "rev1: upgraded as before\n"
        "  /dev/fla2: part 0: 1 of 2 blocks changed: 1\n"
        "  /dev/fla3: part 1, now not written: 2 of 2 blocks changed: 0 to 1\n"
        "  /dev/fla4: not written, now part 1: 2 of 2 blocks changed: 0 to 1\n"
        "rev2: upgraded, now package refused (exit status 1): part 0 (kernel): its conditions "
        "are not met: board=rev1 does not hold, there is no value\n"
        "  /dev/fla3: part 1, now not written: 2 of 2 blocks changed: 0 to 1\n");
    EXPECT_EQ(compared(before, before, {{"rev2", rev2}}),
              "a and b: the same\n"
              "part 0 (kernel): the same\n"
              "part 1 (base): the same\n"
              "rev2: the same, upgraded\n"
              "  /dev/fla3: part 1: the same 2 blocks\n");
    // Parts that changed places are known by their conditions.
    const auto part = [](const std::string &board) {
        return "[[part]]\ntype=2\nfile='x'\nconditions='board=" + board + "'\n";
    };
    EXPECT_EQ(compared(folder.make(part("a") + part("b")), folder.make(part("b") + part("c"))),
              "a and b differ\n"
              "content identifier ID, now ID\n"
              "part 0 (kernel), now part 1: offset 4096, now 12288; conditions board=a, now "
              "board=c; the same 2 blocks\n"
              "part 1 (kernel), now part 0: offset 12288, now 4096; the same 2 blocks\n");
    // The first runs of blocks are named.
    std::string content(20 * 4096, 'x');
    folder.add("x", content);
    const bytes same = folder.make(part("a"));
    for (size_t block = 0; block < 20; block += 2)
        content[block * 4096] = 'y';
    folder.add("x", content);
    EXPECT_TRUE(compared(same, folder.make(part("a")))
                    .ends_with("part 0 (kernel): 10 of 20 blocks changed: 0, 2, 4, 6, 8, 10, 12, "
                               "14 and 2 more runs\n"));
}

TEST(Planner, DeciphersForEachKey)
{
    const bytes made = maker_folder{{"data", "x"}}.make(
        "[package]\nencrypt=true\n[[part]]\ntype=2\nfile='data'\n", "Key");
    plan_maker maker(made);
    for (const std::string &name :
         {"VENID='Key'"s, "VENDOR_KEY='key'"s, "VENDOR_KEY='Key'"s, "VENID='key'"s, ""s}) {
        const std::string text = "[partitions]\n2=4096\n[configuration]\n" + name;
        EXPECT_EQ(maker.plan({"d", parse_device(text, "d")}).exit_status,
                  name.ends_with("='Key'") ? 0 : 1)
            << name;
    }
}
