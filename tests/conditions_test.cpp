// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/conditions.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

using namespace std::string_literals;

namespace {

std::map<std::string, std::string> values;

const char *look_up(const char *name)
{
    const auto found = values.find(name);
    return found == values.end() ? nullptr : found->second.c_str();
}

// The compiled bytes, or "malformed".
std::string compiled(std::string text, int capacity = 4096)
{
    std::vector<uint8_t> code(4096);
    const int length = build_conditions(text.data(), code.data(), capacity);
    return length < 0 ? "malformed" : std::string(code.begin(), code.begin() + length);
}

int evaluated(const std::string &code)
{
    // A copy of the exact size, so that the sanitizer sees a read beyond the end.
    const std::vector<uint8_t> bytes(code.begin(), code.end());
    return eval_conditions(bytes.data(), static_cast<int>(bytes.size()), look_up);
}

} // namespace

TEST(BuildConditions, CompilesToTheBytesOfTheFormat)
{
    const struct {
        const char *text;
        std::string code;
    } rows[] = {
        {"", "\xFF"},
        {"ram:>=64 & board=rev2", "\x0Bram\00064\0\x12\0board\0rev2\0\xFF"s},
        {"a>1 a<1 a>=1", "\1a\0001\0\2a\0001\0\3a\0001\0\xFF"s},
        {"a<=1 a!=1", "\4a\0001\0\5a\0001\0\xFF"s},
        {"a:=1 a:!=1", "\10a\0001\0\15a\0001\0\xFF"s},
        {"(a=1)", "\x13\0a\0001)\0\xFF"s},
        {"( a=1 )", "\x13\0a\0001\0\xFF\xFF"s},
        {"a='it' b=2", "\0a\0'it\0\0b\0002\0\xFF"s},
        {"a :>1", "\11a\0001\0\xFF"s},
        {"_a-b=1", "\0_a-b\0001\0\xFF"s},
        {"a", "malformed"},
        {"a!1", "malformed"},
        {"a.b=1", "malformed"},
        {"a: =1", "malformed"},
        {"a='x", "malformed"},
        {"\xC4=1", "malformed"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(compiled(row.text), row.code) << row.text;
    EXPECT_EQ(compiled("ab=c", 6), "malformed"); // needs 1 + 3 + 2 + 1 bytes
    EXPECT_EQ(compiled("ab=c", 7).size(), 7U);
}

TEST(EvalConditions, FollowsTheLanguage)
{
    values = {
        {"a", "1"}, {"b", "2"}, {"ram", "0x80"}, {"top", "0x7fffffff"}, {"big", "99999999999"}};
    const struct {
        const char *text;
        int result;
    } rows[] = {
        {"", 1},
        {"a=1 b=3", 0},             // nothing between two comparisons is "and"
        {"a=2 | a=1 b=3", 0},       // behind an "or", too
        {"a=1 | ! b=2", 0},         // "or not" is "and not"
        {"| a=2", 1},               // a leading "or" makes its left side true
        {"a=2 | b=2 & a=2", 0},     // from left to right, without precedence
        {"a=2 | ( b=2 & a=1 )", 1}, //
        {"a=1 ) b=3", 1},           // ends at an unbalanced parenthesis
        {"! ( a=2 | b=3 )", 1},     //
        {"none!=x", 1},             // an unknown name is the empty text
        {"none:=0", 1},             // and the number 0
        {"ram:>=64", 1},            // base by prefix
        {"ram:=0200", 1},           //
        {"a:=1.5", 1},              // what follows a number does not count
        {"ram>9", 0},               // as texts
        {"top:>-1", 0},             // the difference wraps around at 32 bits
        {"big:=2147483647", 1},     // saturates
        {"a='1'", 0},               // the opening quote is part of the value
    };
    for (const auto &row : rows)
        EXPECT_EQ(evaluated(compiled(row.text)), row.result) << row.text;
}

TEST(EvalConditions, TakesAnyBytesAsCode)
{
    values = {{"a", "1"}};
    const struct {
        const char *what;
        std::string code;
        int result;
    } rows[] = {
        {"codes that are skipped", "\6\7\x0E\x0F\x14\xFE", 1},
        {"no end", "\0a\0002\0"s, 0},
        {"cut inside a name", "\0a"s, -1},
        {"cut inside a value", "\0a\0001"s, -1},
        {"malformed inside a group", "\x13\0a"s, -1},
        {"malformed behind the end", "\xFF\0a"s, 1},
        // Without its closing byte the group is evaluated, and then its bytes again: not (a=2),
        // then a=2.
        {"open group", "\x10\x13\0a\0002\0"s, 0},
        {"open group of what holds", "\x10\x13\0a\0001\0"s, 0},
        // a=2 | (a=1 | a=2) and, from 1 on, a=1 | a=2 once more; the same from 0 on.
        {"open group that ends in or", "\0a\0002\0\x11\x13\0a\0001\0\x11\0a\0002\0"s, 1},
        {"open group of or alone", "\0a\0002\0\x13\x11\0a\0001\0"s, 1},
        // ( ! ( a=2 | a=1: the inner one is 1, not of it 0, and a=2 | a=1 makes that 1 again.
        {"two open groups", "\x13\x10\x13\0a\0002\0\x11\0a\0001\0"s, 1},
        // a=2 ( | a=1 ( a=1: what the outer one leaves at 0 is 1 once its items come again.
        {"two open groups behind what does not hold", "\0a\0002\0\x13\x11\0a\0001\0\x13\0a\0001\0"s,
         1},
        {"two open groups of what does not hold", "\x13\x11\x13\0a\0002\0"s, 0},
        {"as many open groups as may be", std::string(condition_depth_limit, '\x13'), 1},
        {"one more, never met", std::string(condition_depth_limit + 1, '\x13'), 0},
        {"many", std::string(4000, '\x13') + "\0a\0002\0"s + std::string(4000, '\xFF'), 0},
    };
    for (const auto &row : rows)
        EXPECT_EQ(evaluated(row.code), row.result) << row.what;
}

TEST(Features, AreLookedUpInThePublishedSetAlone)
{
    const auto set = "ram\00064\0board\0rev2\0ram\00065\0cut"s;
    _feature_set = reinterpret_cast<const uint8_t *>(set.data());
    _feature_set_size = static_cast<int>(set.size());
    EXPECT_STREQ(get_feature("ram"), "64");
    EXPECT_STREQ(get_feature("board"), "rev2");
    for (const char *near : {"64", "ra", "ramx", "", "RAM", "cut"})
        EXPECT_EQ(get_feature(near), nullptr) << near;
    _feature_set_size = 4; // a name without a value
    EXPECT_EQ(get_feature("ram"), nullptr);
    _feature_set = nullptr;
    EXPECT_EQ(get_feature("ram"), nullptr);
}

TEST(EvalFeatures, UsesUpTheRequirementOfAType)
{
    const auto set = "ram\00064\0"s;
    const auto *bytes = reinterpret_cast<const uint8_t *>(set.data());
    const int length = static_cast<int>(set.size());
    unsetenv("kernel_features");
    EXPECT_EQ(eval_features(2, bytes, length), 1);
    setenv("kernel_features", "ram:>=32 & ram:<128", 1);
    EXPECT_EQ(eval_features(2, bytes, length), 1);
    EXPECT_EQ(_feature_set, nullptr);
    EXPECT_STREQ(getenv("kernel_features"), "ram");
    EXPECT_EQ(eval_features(2, bytes, length), 0); // the rest, a name alone, does not compile
    EXPECT_EQ(eval_features(9, bytes, length), 0);
    setenv("app_features", ("ram=" + std::string(10'000, '6')).c_str(), 1);
    EXPECT_EQ(eval_features(4, bytes, length), 0);
}
