// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/doctor/matcher.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace doctor {

namespace {

/// One piece of a format: a text, or a directive.
struct piece {
    char directive; ///< 'd', 'x', 'c' or 's'; 0 for a text
    std::string_view text;
};

struct pattern {
    const message_row *row;
    std::vector<piece> pieces;
    size_t said;    ///< bytes that the format says itself
    bool ends_line; ///< the last argument goes on to the line's end
    bool may_break; ///< an argument may hold a newline, so that the rest is in the next line
};

/// The format's first line in pieces: what follows a newline stands in the next line of the log.
pattern compile(const message_row &row)
{
    const std::string_view format(row.format);
    const std::string_view line = format.substr(0, format.find('\n'));
    pattern result = {&row, {}, 0, line.size() < format.size(), row.weight == weight_trace};
    for (size_t at = 0; at < line.size();) {
        const bool directive = line[at] == '%';
        const size_t end = directive ? at + 2 : std::min(line.find('%', at), line.size());
        const std::string_view text = line.substr(at, end - at);
        result.pieces.push_back({directive ? text[1] : '\0', text});
        result.said += directive ? 0 : text.size();
        at = end;
    }
    return result;
}

/// The patterns by their first byte, the one that says most first.
using pattern_index = std::array<std::vector<pattern>, 256>;

const pattern_index &patterns()
{
    static const pattern_index index = [] {
        pattern_index made;
        for (const message_section &section : message_sections())
            for (const message_row &row : section.rows)
                made[static_cast<uint8_t>(row.format[0])].push_back(compile(row));
        for (std::vector<pattern> &same : made)
            std::ranges::stable_sort(same, std::greater<>(), &pattern::said);
        return made;
    }();
    return index;
}

bool is_digit(char byte, char directive)
{
    const bool decimal = byte >= '0' && byte <= '9';
    return decimal || (directive == 'x' && byte >= 'a' && byte <= 'f');
}

/// How much of `text` a "%s" stands for when the piece `next` follows, or none. Within a message it
/// is a name and holds no blank, but for traces.
std::optional<size_t> text_length(const pattern &form, std::string_view text, std::string_view next)
{
    constexpr size_t longest = 4096; // bounds the search in lines of another program
    if (next.empty())
        return text.size();
    text = text.substr(0, longest);
    if (!form.may_break)
        text = text.substr(0, std::min(text.find(' '), text.size()) + next.size());
    const size_t end = text.find(next);
    return end == std::string_view::npos ? std::nullopt : std::optional(end);
}

/// How much of `text` a directive for a number or a character stands for, or none.
std::optional<size_t> number_length(char directive, std::string_view text)
{
    if (directive == 'c')
        return text.empty() ? std::nullopt : std::optional<size_t>(1);
    const size_t sign = text.starts_with('-') ? 1 : 0;
    size_t length = sign;
    while (length < text.size() && is_digit(text[length], directive))
        length++;
    return length > sign ? std::optional(length) : std::nullopt;
}

/// The message that `text` begins with by this pattern.
std::optional<message> match(const pattern &form, std::string_view text)
{
    message found = {form.row, {}, {}};
    size_t at = 0;
    for (size_t index = 0; index < form.pieces.size(); index++) {
        const piece &now = form.pieces[index];
        const std::string_view rest = text.substr(at);
        if (now.directive == '\0') {
            if (!rest.starts_with(now.text))
                return {};
            at += now.text.size();
            continue;
        }
        const bool last = index + 1 == form.pieces.size();
        const std::string_view next = last ? std::string_view() : form.pieces[index + 1].text;
        const auto length = now.directive == 's' ? text_length(form, rest, next)
                                                 : number_length(now.directive, rest);
        if (!length && !form.may_break)
            return {};
        found.arguments.push_back(rest.substr(0, length.value_or(rest.size())));
        at += found.arguments.back().size();
        if (!length)
            break;
    }
    found.text = text.substr(0, at);
    return found;
}

/// The message that `text` begins with; its last argument reaches to the end of the text where it
/// may do so.
std::optional<message> match_any(std::string_view text, const pattern **by)
{
    for (const pattern &form : patterns()[static_cast<uint8_t>(text[0])]) {
        if (std::optional<message> found = match(form, text)) {
            *by = &form;
            return found;
        }
    }
    return {};
}

/// The same, with a last argument that ends where the next message begins, if no newline does.
std::optional<message> match_one(std::string_view text)
{
    const pattern *by = nullptr;
    std::optional<message> found = match_any(text, &by);
    if (!found || by->pieces.back().directive != 's' || by->ends_line || by->may_break)
        return found;
    std::string_view &argument = found->arguments.back();
    size_t end = 0;
    while (end < argument.size() && !match_any(argument.substr(end), &by))
        end++;
    found->text.remove_suffix(argument.size() - end);
    argument = argument.substr(0, end);
    return found;
}

} // namespace

std::vector<message> find_messages(std::string_view line)
{
    std::vector<message> messages;
    const pattern_index &index = patterns();
    while (!line.empty()) {
        if (index[static_cast<uint8_t>(line[0])].empty()) { // no more than a look at most bytes
            line.remove_prefix(1);
            continue;
        }
        const std::optional<message> found = match_one(line);
        if (found)
            messages.push_back(*found);
        line.remove_prefix(found ? std::max<size_t>(found->text.size(), 1) : 1);
    }
    return messages;
}

} // namespace doctor
