// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/condition_code.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>

#include "package/conditions.h"
#include "tools/common/failure.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

constexpr int code_limit = 65535; // what the length word of a part entry can say

int compile(std::string text, std::vector<uint8_t> &code)
{
    code.resize(code_limit);
    return build_conditions(text.data(), code.data(), code_limit);
}

std::string why_unreadable(const std::string &rest)
{
    const unsigned char first = static_cast<unsigned char>(rest.front());
    if (first == '"' || first == '\'')
        return "a quoted value has no closing quote";
    if (isalpha(first) == 0 && first != '_')
        return "a name begins with a letter or \"_\"";
    return "a name is followed by an optional \":\" and, directly behind it, "
           "one of = != > >= < <=; a quoted value needs its closing quote";
}

/// The length of the longest beginning of `text` that compiles: the item behind it is the wrong
/// one.
size_t readable_length(const std::string &text)
{
    std::vector<uint8_t> code;
    size_t length = text.size();
    while (length > 0 && compile(text.substr(0, length), code) < 0)
        length--;
    return length;
}

std::string escape_all(const std::string &text, bool (*allowed)(unsigned char c, size_t index))
{
    if (text.empty())
        return "\\0";
    std::string result;
    for (size_t i = 0; i < text.size(); i++) {
        const auto byte = static_cast<uint8_t>(text[i]);
        if (allowed(byte, i))
            result += text[i];
        else
            result += "\\x" + hex(std::array{byte});
    }
    return result;
}

std::string name_text(const std::string &name)
{
    return escape_all(name, [](unsigned char c, size_t index) {
        const bool begins = isalpha(c) != 0 || c == '_';
        return begins || (index > 0 && (isdigit(c) != 0 || c == '-'));
    });
}

bool has_blank(const std::string &text)
{
    return std::any_of(text.begin(), text.end(), [](unsigned char c) { return isspace(c) != 0; });
}

std::string value_text(const std::string &value)
{
    // The closing quote is not in the code: the opening one alone says how the value was written.
    if (!value.empty() && (value[0] == '"' || value[0] == '\'') && is_printable(value) &&
        value.find(value[0], 1) == std::string::npos)
        return value + value[0];
    if (!value.empty() && !has_blank(value))
        return printable(value);
    return escape_all(value, [](unsigned char c, size_t) { return c > ' ' && c < 0x7F; });
}

/// The value as the text had it, were it a text's.
std::string raw_value(const std::string &value)
{
    const bool quoted = !value.empty() && (value[0] == '"' || value[0] == '\'');
    return quoted ? value + value[0] : value;
}

std::string comparison_text(const condition_item &item, const std::string &name,
                            const std::string &value)
{
    // "> =5" is greater than "=5", while ">=5" would be another operator.
    const int base = item.code % condition_numeric;
    const bool apart = (base == condition_greater || base == condition_less) && value[0] == '=';
    return name + operator_text(item.code) + (apart ? " " : "") + value;
}

bool compiles_to(const std::string &text, std::span<const uint8_t> code)
{
    std::vector<uint8_t> again;
    const int length = compile(text, again);
    return length >= 0 &&
           std::ranges::equal(code, std::span(again).first(static_cast<size_t>(length)));
}

} // namespace

std::vector<uint8_t> compile_condition(const std::string &text, const std::string &place)
{
    const size_t nul = text.find('\0');
    if (nul != std::string::npos)
        throw failure(place + ": column " + std::to_string(nul + 1) + " is NUL");
    std::vector<uint8_t> code;
    const int length = compile(text, code);
    if (length >= 0) {
        code.resize(static_cast<size_t>(length));
        return code;
    }
    if (text.size() > code_limit / 2)
        throw failure(place + ": " + std::to_string(text.size()) +
                      " characters do not compile, or to more than 65535 bytes");
    const size_t good = readable_length(text);
    const std::string rest = text.substr(good);
    throw failure(place + ": \"" + printable(text) + "\" cannot be read from column " +
                  std::to_string(good + 1) + " on (\"" + printable(rest) +
                  "\"): " + why_unreadable(rest));
}

std::vector<condition_item> list_condition(std::span<const uint8_t> code)
{
    std::vector<condition_item> items;
    for (int position = 0, length = static_cast<int>(code.size()); position < length;) {
        const uint8_t *at = code.data() + position;
        const code_item found = read_code_item(at, length - position);
        condition_item item{position,       found.size, found.code, found.comparison,
                            found.complete, {},         {}};
        if (found.comparison && found.complete) {
            item.name = found.name;
            item.value = found.value;
        } else if (found.comparison) { // as much as there is
            const uint8_t *end = at + found.size;
            const uint8_t *name_end = std::find(at + 1, end, 0);
            item.name.assign(at + 1, name_end);
            item.value.assign(std::min(name_end + 1, end), end);
        }
        position += found.size;
        items.push_back(std::move(item));
    }
    return items;
}

size_t reached_items(const std::vector<condition_item> &items)
{
    int depth = 0;
    for (size_t i = 0; i < items.size(); i++) {
        if (items[i].code == condition_open)
            depth++;
        else if (items[i].code == condition_close && depth-- == 0)
            return i + 1;
    }
    return items.size();
}

bool is_numeric(const condition_item &item)
{
    return item.comparison && item.code >= condition_numeric;
}

int32_t number_of(const std::string &value)
{
    return static_cast<int32_t>(
        std::clamp<long long>(strtoll(value.c_str(), nullptr, 0), INT32_MIN, INT32_MAX));
}

std::string operator_text(uint8_t code)
{
    constexpr std::array texts = {"=", ">", "<", ">=", "<=", "!="};
    const char *text = texts.at(code % condition_numeric);
    return (code >= condition_numeric ? ":" : "") + std::string(text);
}

std::string item_text(const condition_item &item)
{
    if (item.comparison)
        return comparison_text(item, name_text(item.name), value_text(item.value));
    switch (item.code) {
    case condition_and_not:
        return "!";
    case condition_or:
        return "|";
    case condition_and:
        return "&";
    case condition_open:
        return "(";
    case condition_close:
        return ")";
    default:
        return "\\x" + hex(std::array{item.code});
    }
}

condition_text decompile_condition(std::span<const uint8_t> code)
{
    std::vector<condition_item> items = list_condition(code);
    const bool ends = !items.empty() && items.back().code == condition_close;
    if (ends)
        items.pop_back(); // the compiler adds it
    std::string text;
    std::string raw;
    for (const condition_item &item : items) {
        const bool as_it_is = item.comparison && item.complete;
        raw += " " + (as_it_is ? comparison_text(item, item.name, raw_value(item.value))
                               : item_text(item));
        // An empty value stands at the end of a text, where the escape would not be needed.
        std::string piece = item_text(item);
        if (&item == &items.back() && item.comparison && item.complete && item.value.empty())
            piece.resize(piece.size() - 2);
        text += (text.empty() ? "" : " ") + piece;
    }
    const bool exact = code.empty() || compiles_to(text, code);
    return {text, exact, exact || compiles_to(raw, code)};
}

bool comparison_holds(const condition_item &item, const std::optional<std::string> &actual)
{
    return ::comparison_holds(item.code, actual ? actual->c_str() : nullptr, item.value.c_str());
}

} // namespace fwpkg
