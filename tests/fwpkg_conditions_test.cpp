// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include "tests/fwpkg_support.h"
#include "tools/fwpkg/check_condition.h"
#include "tools/fwpkg/condition_code.h"
#include "tools/fwpkg/condition_report.h"
#include "tools/fwpkg/overlap.h"

using namespace fwpkg;
using namespace std::string_view_literals;

TEST(ConditionCode, BecomesTextThatCompilesToTheSameBytes)
{
    const struct {
        std::string_view code;
        const char *text;
        bool exact;
        bool writable = false; // where the text is not exact
    } rows[] = {
        {"", "", true},
        {"\x0Bram\00064\0\x12\0board\0rev2\0\xFF"sv, "ram:>=64 & board=rev2", true},
        {"\0a\0\"x y\0\0b\0'\"\0\xFF"sv, "a=\"x y\" b='\"'", true},
        {"\0a\0caf\xC3\xA9\0\xFF"sv, "a=caf\xC3\xA9", true},
        {"\0a\0\0\x12\0b\0001\0\xFF"sv, "a=\\0 & b=1", false}, // empty in the middle
        {"\0a\0\"x\"y\0\xFF"sv, "a=\"x\"y", false},
        {"\0a\0\x1B[1m\0\xFF"sv, "a=\\x1b[1m", false, true}, // not to reach a terminal
        {"\0001 a\0x\0\xFF"sv, "\\x31\\x20a=x", false},
        {"\6\0a\0x\0\xFF"sv, "\\x06 a=x", false},
        {"\0a\0x"sv, "a=x", false}, // incomplete
    };
    for (const auto &row : rows) {
        const condition_text text = decompile_condition(bytes_of(row.code));
        EXPECT_EQ(text.text, row.text);
        EXPECT_EQ(text.exact, row.exact) << row.text;
        EXPECT_EQ(text.writable, row.exact || row.writable) << row.text;
    }
}

TEST(ConditionWarnings, AreNamedOnceEach)
{
    const struct {
        const char *text, *warning; // its beginning, empty when there is none
    } rows[] = {
        {"( a=1 | b=1 ) & ! c=1", ""},
        {"a=\"x\"", "a=\"x\": the value \"\"x\" keeps its opening quote"},
        {"a==1", "a==1: the value \"=1\" begins with \"=\": there is no operator \"==\""},
        {"( a=1", "a \"(\" has no \")\" and reaches"},
        {"a=1&b=2", "a=1&b=2: the value \"1&b=2\" reaches up"},
        {"a=1 | b=1 & c=1", "there is no precedence"},
        {"! ! a=1", "\"! !\": the last of two operators in a row counts, here \"!\" alone"},
        {"a=1 ) b=1", "a \")\" without its \"(\" ends"},
        {"a:=010", "a:=010: the value \"010\" is octal: 8"},
        {"a:=0xffffffff",
         "a:=0xffffffff: the value \"0xffffffff\" overflows 32 bits and counts as 2147483647"},
        {"a>9", "a>9: compares as text"},
    };
    for (const auto &row : rows) {
        const auto warnings = condition_warnings(list_condition(compile_condition(row.text, "x")));
        EXPECT_EQ(warnings.size(), row.warning[0] == '\0' ? 0U : 1U)
            << row.text << joined(warnings);
        EXPECT_TRUE(joined(warnings).starts_with(row.warning)) << row.text << joined(warnings);
    }
    const auto item = list_condition(compile_condition("a:=1", "x")).at(0);
    EXPECT_TRUE(joined(value_warnings(item, "-2147483648"))
                    .starts_with("a:=1: the difference to the actual value"));
    EXPECT_EQ(joined(value_warnings(item, "-2147483647")), "");
}

TEST(ConditionReport, ListsComparisonsAndTheResult)
{
    const condition_report report = explain_condition("b:>-1 | a=x", {{"b", "0x7fffffff"}});
    EXPECT_EQ(condition_text_report(report),
              "13 bytes: 09 62 00 2d 31 00 11 00 61 00 78 00 ff\n"
              "    0  b:>-1  as numbers, with \"0x7fffffff\": does not hold\n"
              "    6  or\n"
              "    7  a=x  as texts, with nothing: does not hold\n"
              "   12  close group, or end\n"
              "result: does not hold\n");
    EXPECT_EQ(joined(report.warnings),
              "b:>-1: the difference to the actual value \"0x7fffffff\" overflows 32 bits, so that "
              "the comparison turns round\n"
              "a=x: a is unknown and counts as the empty text\n");
}

TEST(Overlap, IsFoundWhereADeviceCanMeetBoth)
{
    using enum overlap;
    const struct {
        const char *a, *b;
        overlap answer;
    } rows[] = {
        {"board=rev1", "board=rev2", none},
        {"board=rev1", "ram:>64", some},
        {"ram:>=64", "ram:<=64", some},
        {"ram:>64", "ram:<65", none},
        {"v>a", "v<ab", some},               // between the two
        {"ram:>2147483647", "ram:<0", some}, // where the difference wraps
        {"ram:>10", "ram:<0", some},         // far from both
        {"! ( a=1 | b=1 )", "a=1 | b=1", none},
        {"a=5", "a:<5", mixed},
    };
    for (const auto &row : rows) {
        const auto a = compile_condition(row.a, "a");
        const auto b = compile_condition(row.b, "b");
        EXPECT_EQ(find_overlap(a, b).answer, row.answer) << row.a << " and " << row.b;
    }
}
