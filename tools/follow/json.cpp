// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/json.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "tools/common/utf8.h"

namespace follow {

namespace {

constexpr uint32_t replacement = 0xFFFD;
constexpr uint32_t first_high_surrogate = 0xD800;
constexpr uint32_t first_low_surrogate = 0xDC00;
constexpr uint32_t last_surrogate = 0xDFFF;
constexpr uint32_t first_supplementary = 0x10000;

void skip_blanks(char **at)
{
    *at += strspn(*at, " \t\r\n");
}

bool take(char **at, char expected)
{
    skip_blanks(at);
    if (**at != expected)
        return false;
    ++*at;
    return true;
}

bool read_four_digits(char **at, uint32_t *value)
{
    const std::string_view digits = {*at, 4}; // where the line ends before, its NUL is none
    *at += digits.size();
    return read_hex(digits, value);
}

// Behind a "\u": the code point, of two escapes where it takes a pair.
bool read_unicode(char **at, uint32_t *point)
{
    if (!read_four_digits(at, point) || *point == 0)
        return false;
    if (*point < first_high_surrogate || *point > last_surrogate)
        return true;
    if (*point >= first_low_surrogate || (*at)[0] != '\\' || (*at)[1] != 'u')
        return false;
    *at += 2;
    uint32_t low = 0;
    if (!read_four_digits(at, &low) || low < first_low_surrogate || low > last_surrogate)
        return false;
    *point =
        first_supplementary + ((*point - first_high_surrogate) << 10) + (low - first_low_surrogate);
    return true;
}

char *put_utf8(char *out, uint32_t point)
{
    const int more = point < 0x80 ? 0 : point < 0x800 ? 1 : point < first_supplementary ? 2 : 3;
    constexpr std::array<uint32_t, 4> leads = {0, 0xC0, 0xE0, 0xF0};
    *out++ = static_cast<char>(leads[static_cast<size_t>(more)] | point >> 6 * more);
    for (int left = more - 1; left >= 0; left--)
        *out++ = static_cast<char>(0x80 | (point >> 6 * left & 0x3F));
    return out;
}

// Rewritten where it stands: that is never behind the reading.
bool read_string(char **at, std::string_view *text)
{
    if (!take(at, '"'))
        return false;
    char *const begin = *at;
    char *out = begin;
    while (**at != '"') { // ends at the quote or a control character, the NUL among them
        const char next = *(*at)++;
        if (static_cast<unsigned char>(next) < 0x20)
            return false;
        if (next != '\\') {
            *out++ = next;
            continue;
        }
        const char escape = *(*at)++;
        constexpr std::string_view from = "\"\\/bfnrt";
        constexpr std::string_view to = "\"\\/\b\f\n\r\t";
        uint32_t point = 0;
        if (const size_t index = from.find(escape); index != std::string_view::npos)
            *out++ = to[index];
        else if (escape == 'u' && read_unicode(at, &point))
            out = put_utf8(out, point);
        else
            return false;
    }
    *text = {begin, static_cast<size_t>(out - begin)};
    return take(at, '"');
}

// A number or a word; recordings hold numbers alone where it matters, and read_seconds judges them.
bool read_word(char **at, std::string_view *text)
{
    *text = {*at, strspn(*at, "+-.0123456789Eaeflnrstu")};
    *at += text->size();
    return !text->empty();
}

bool read_member(char **at, json_member *into)
{
    if (!read_string(at, &into->name) || !take(at, ':'))
        return false;
    skip_blanks(at);
    into->is_string = **at == '"';
    return into->is_string ? read_string(at, &into->text) : read_word(at, &into->text);
}

} // namespace

void append(text_buffer *to, std::string_view text)
{
    const size_t size = std::min(text.size(), to->data.size() - to->size);
    std::copy_n(text.begin(), size, to->data.begin() + to->size);
    to->size += size;
}

void append_format(text_buffer *to, const char *format, ...)
{
    const size_t room = to->data.size() - to->size;
    va_list arguments;
    va_start(arguments, format);
    const int size = vsnprintf(to->data.data() + to->size, room, format, arguments);
    va_end(arguments);
    if (size > 0 && room > 0)
        to->size += std::min(static_cast<size_t>(size), room - 1); // its NUL is no text
}

void append_string(text_buffer *to, std::string_view text)
{
    append(to, "\"");
    while (!text.empty()) {
        uint32_t point = take_code_point(&text);
        if (point == no_code_point)
            point = replacement;
        if (point >= first_supplementary) {
            const uint32_t rest = point - first_supplementary;
            append_format(to, "\\u%04x\\u%04x", first_high_surrogate + (rest >> 10),
                          first_low_surrogate + (rest & 0x3FF));
        } else if (point < 0x20 || point >= 0x7F) {
            append_format(to, "\\u%04x", point);
        } else {
            if (point == '"' || point == '\\')
                append(to, "\\");
            const char plain = static_cast<char>(point);
            append(to, {&plain, 1});
        }
    }
    append(to, "\"");
}

bool read_object(char *line, json_object *object)
{
    char *at = line;
    object->count = 0;
    if (!take(&at, '{'))
        return false;
    if (!take(&at, '}')) {
        do {
            if (object->count == object->members.size() ||
                !read_member(&at, &object->members[object->count]))
                return false;
            object->count++;
        } while (take(&at, ','));
        if (!take(&at, '}'))
            return false;
    }
    skip_blanks(&at);
    return *at == '\0';
}

const json_member *find_member(const json_object *object, std::string_view name)
{
    for (size_t index = 0; index < object->count; index++)
        if (object->members[index].name == name)
            return &object->members[index];
    return nullptr;
}

bool read_hex(std::string_view digits, uint32_t *value)
{
    constexpr std::string_view known = "0123456789abcdefABCDEF";
    *value = 0;
    for (const char digit : digits) {
        const size_t place = known.find(digit);
        if (place == std::string_view::npos)
            return false;
        *value = *value << 4 | static_cast<uint32_t>(place < 16 ? place : place - 6);
    }
    return !digits.empty();
}

bool read_seconds(std::string_view text, int64_t *milliseconds)
{
    constexpr int64_t limit = 100'000'000'000;
    const size_t point = std::min(text.find('.'), text.size());
    if (point == 0 || point + 1 == text.size())
        return false;
    int64_t whole = 0;
    int64_t part = 0;
    int64_t weight = 1000;
    for (size_t index = 0; index < text.size(); index++) {
        if (index == point)
            continue;
        if (text[index] < '0' || text[index] > '9')
            return false;
        if (index < point)
            whole = std::min(limit + 1, whole * 10 + (text[index] - '0'));
        else
            part += (weight /= 10) * (text[index] - '0');
    }
    *milliseconds = whole * 1000 + part;
    return whole <= limit;
}

} // namespace follow
