// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/check_condition.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "package/conditions.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

using sentences = std::vector<std::string>;

bool is_operator(const condition_item &item)
{
    return item.code == condition_and_not || item.code == condition_or ||
           item.code == condition_and;
}

bool is_operand(const condition_item &item)
{
    return item.comparison || item.code == condition_open;
}

std::string quoted(const std::string &text)
{
    return "\"" + printable(text) + "\"";
}

/// What is odd about `text` as a number, empty when nothing is.
std::string number_oddity(const std::string &text)
{
    char *end = nullptr;
    errno = 0;
    const long long number = strtoll(text.c_str(), &end, 0);
    if (end == text.c_str())
        return "has no number and counts as 0";
    if (errno == ERANGE || number < INT32_MIN || number > INT32_MAX)
        return "overflows 32 bits and counts as " + std::to_string(number_of(text));
    if (*end != '\0')
        return "counts as " + std::to_string(number) + ", what follows is ignored";
    const size_t digits = text.find_first_of("0123456789");
    if (text[digits] == '0' && digits + 1 < text.size() && text[digits + 1] != 'x' &&
        text[digits + 1] != 'X')
        return "is octal: " + std::to_string(number);
    return {};
}

void add_comparison_warnings(const condition_item &item, sentences &warnings)
{
    const std::string &value = item.value;
    const std::string where = item_text(item) + ": the value " + quoted(value) + " ";
    const char first = value.empty() ? '\0' : value[0];
    if (first == '"' || first == '\'')
        warnings.push_back(where + "keeps its opening quote");
    else if (value.find_first_of("()&|") != std::string::npos)
        warnings.push_back(where + "reaches up to the next blank: put one before an operator or a "
                                   "parenthesis that is not meant as part of it");
    if (first == '=' && item.code % condition_numeric == condition_equal)
        warnings.push_back(where + "begins with \"=\": there is no operator \"==\"");
    if (!is_numeric(item)) {
        const bool ordered = item.code != condition_equal && item.code != condition_not_equal;
        if (ordered && number_oddity(value).empty())
            warnings.push_back(item_text(item) +
                               ": compares as text, so that \"9\" is greater than " +
                               "\"10\"; numbers are compared with \"" +
                               operator_text(item.code + condition_numeric) + "\"");
    } else if (const std::string oddity = number_oddity(value); !oddity.empty()) {
        warnings.push_back(where + oddity);
    }
}

/// One level of groups while the items are walked.
struct level {
    bool any_operand = false; ///< something was combined already
    bool or_before = false;   ///< the last one applied was an "or"
    const condition_item *pending = nullptr;
};

void add_pending_warning(const condition_item &before, const condition_item &now,
                         sentences &warnings)
{
    // "& !" is how "and not" is written; the same one twice changes nothing, but for "! !".
    const bool usual = before.code == condition_and && now.code == condition_and_not;
    const bool repeated = before.code == now.code && now.code != condition_and_not;
    if (!usual && !repeated)
        warnings.push_back("\"" + item_text(before) + " " + item_text(now) +
                           "\": the last of two operators in a row counts, here \"" +
                           item_text(now) + "\" alone");
}

void combine(level &now, sentences &warnings)
{
    const uint8_t code = now.pending == nullptr ? uint8_t{condition_and} : now.pending->code;
    if (code == condition_or && !now.any_operand)
        warnings.emplace_back("a leading \"|\" makes what follows it count as true");
    if (code != condition_or && now.or_before)
        warnings.emplace_back(
            "there is no precedence: \"and\" behind \"or\" applies to the whole left "
            "side; only parentheses change that");
    now.or_before = code == condition_or;
    now.any_operand = true;
    now.pending = nullptr;
}

void end_level(const level &now, sentences &warnings)
{
    if (now.pending != nullptr)
        warnings.push_back("\"" + item_text(*now.pending) +
                           "\" has nothing behind it and no effect");
}

void add_end_warnings(const std::vector<condition_item> &items, size_t reached, sentences &warnings)
{
    int open = 0; // -1 where the last byte that was reached ends the condition
    for (const condition_item &item : std::span(items).first(reached))
        open += item.code == condition_open ? 1 : item.code == condition_close ? -1 : 0;
    if (reached < items.size())
        warnings.emplace_back("a \")\" without its \"(\" ends the condition: what is behind it is "
                              "never looked at");
    else if (open > 0)
        warnings.emplace_back(
            "a \"(\" without its \")\" runs to the end, and its items count a second "
            "time outside of it");
    else if (open == 0 && !items.empty() && items.back().code == condition_close)
        warnings.emplace_back("a \"(\" has no \")\" and reaches to the end");
}

} // namespace

std::vector<std::string> condition_warnings(const std::vector<condition_item> &items)
{
    sentences warnings;
    std::vector<level> levels(1);
    const size_t reached = reached_items(items);
    for (const condition_item &item : std::span(items).first(reached)) {
        if (item.comparison && item.complete)
            add_comparison_warnings(item, warnings);
        if (is_operator(item)) {
            if (levels.back().pending != nullptr)
                add_pending_warning(*levels.back().pending, item, warnings);
            levels.back().pending = &item;
        } else if (is_operand(item)) {
            combine(levels.back(), warnings);
        }
        if (item.code == condition_open) {
            levels.emplace_back();
        } else if (item.code == condition_close) {
            end_level(levels.back(), warnings);
            if (levels.size() > 1)
                levels.pop_back();
        }
    }
    add_end_warnings(items, reached, warnings);
    return warnings;
}

std::vector<std::string> value_warnings(const condition_item &item,
                                        const std::optional<std::string> &actual)
{
    if (!actual)
        return {item_text(item) + ": " + printable(item.name) + " is unknown and counts as " +
                (is_numeric(item) ? "0" : "the empty text")};
    if (!is_numeric(item))
        return {};
    const std::string oddity = number_oddity(*actual);
    if (!oddity.empty())
        return {item_text(item) + ": the actual value " + quoted(*actual) + " " + oddity};
    const int64_t difference = int64_t{number_of(*actual)} - number_of(item.value);
    if (difference < INT32_MIN || difference > INT32_MAX)
        return {item_text(item) + ": the difference to the actual value " + quoted(*actual) +
                " overflows 32 bits, so that the comparison turns round"};
    return {};
}

} // namespace fwpkg
