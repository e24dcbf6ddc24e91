// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/image/compare.h"
#include "tools/image/trailer.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "tools/common/files.h"

namespace {

image::reader text_reader(const std::string &text)
{
    return image::memory_reader({reinterpret_cast<const uint8_t *>(text.data()), text.size()});
}

image::candidate text_candidate(const std::string &name, const std::string &text)
{
    return {name, {reinterpret_cast<const uint8_t *>(text.data()), text.size()}};
}

/// "123456789" and its trailer: CRC 0xCBF43926, length 9, their sum with the magic, the magic.
const std::string trailer_of_digits("\x26\x39\xF4\xCB\x09\0\0\0\x60\xA9\x36\x10\x31\x70\x42\x44",
                                    16);

/// A run as "first+count owners", "erased" or "-" for none.
std::string text(const std::vector<image::run> &runs)
{
    std::string all;
    for (const image::run &run : runs) {
        all += std::to_string(run.first) + "+" + std::to_string(run.count) + " ";
        for (const size_t owner : run.owners)
            all += std::to_string(owner);
        all += run.owners.empty() ? run.erased ? "erased; " : "-; " : "; ";
    }
    return all;
}

/// Blocks named by a letter each; '.' is an erased one.
std::string blocks(const std::string &letters)
{
    std::string all;
    for (const char letter : letters)
        all += std::string(4096, letter == '.' ? '\xFF' : letter);
    return all;
}

TEST(Image, TellsWhoseBlocksAPartitionHolds)
{
    // A block of its own each at the end, which the trailer is in.
    const std::string older = blocks("aabb") + "old end";
    const std::string newer = blocks("acbd") + std::string(4000, 'n');
    const struct {
        std::string content;
        const char *runs;
        const char *state;
    } rows[] = {
        {blocks("......"), "0+6 erased; ", "erased"},
        {older + blocks("x"), "0+5 0; 5+1 -; ", "whole"},
        {newer + std::string(8192 - 4000, '\xFF'), "0+5 1; 5+1 erased; ", "whole"},
        {blocks("acbb") + "old end" + blocks(".").substr(7) + blocks("."), // two shared blocks
         "0+3 1; 3+2 0; 5+1 erased; ", "mixed"},
        {blocks("zabz..z"), "0+1 -; 1+2 0; 3+1 -; 4+2 erased; 6+1 -; ", "mixed"},
        {blocks("zzz.") + "short", "0+3 -; 3+1 erased; 4+1 -; ", "unknown"},
    };
    const std::array candidates = {text_candidate("old", older), text_candidate("new", newer)};
    for (const auto &row : rows) {
        const image::comparison found = compare(text_reader(row.content), candidates);
        EXPECT_EQ(text(found.runs), row.runs) << &row - rows;
        EXPECT_STREQ(name(judge_content(found)), row.state) << &row - rows;
    }
}

TEST(Image, LeavesTheTrailersPlaceOutOfTheComparison)
{
    const std::string part = blocks("pq");
    const std::array candidates = {text_candidate("part", part)};
    const auto whole = [&candidates](const std::string &content) {
        return compare(text_reader(content), candidates).presences[0].whole;
    };
    const std::string trailed = part.substr(0, 8192 - 16) + trailer_of_digits;
    EXPECT_TRUE(whole(trailed));
    EXPECT_FALSE(whole(part.substr(0, 8192 - 17) + "!" + trailer_of_digits));
    EXPECT_FALSE(whole(trailed.substr(1))); // the partition is too small for it
}

TEST(Image, ReadsBigFiles)
{
    const std::filesystem::path path = testing::TempDir() + "image_test.bin";
    constexpr uint64_t size = (UINT64_C(5) << 30) + 9; // sparse
    std::ofstream(path, std::ios::binary) << "123456789";
    std::filesystem::resize_file(path, size);
    std::fstream(path).seekp(static_cast<std::streamoff>(size - 16)) << trailer_of_digits;
    const image::reader reader = image::file_reader(path);
    EXPECT_EQ(judge_trailer(reader).state, image::trailer_state::valid);
    std::filesystem::resize_file(path, size - 1);
    EXPECT_THROW(judge_trailer(reader), failure);
    std::filesystem::remove(path);
}

} // namespace
