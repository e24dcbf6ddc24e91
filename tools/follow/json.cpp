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

unsigned char byte_of(char character)
{
    return static_cast<unsigned char>(character);
}

// The text that is read, and where its strings are rewritten: never behind the reading.
struct reader {
    char *at;
    char *end;
};

void skip_blanks(reader *in)
{
    while (in->at < in->end &&
           (*in->at == ' ' || *in->at == '\t' || *in->at == '\r' || *in->at == '\n'))
        in->at++;
}

bool take(reader *in, char expected)
{
    skip_blanks(in);
    if (in->at == in->end || *in->at != expected)
        return false;
    in->at++;
    return true;
}

bool read_hex(reader *in, uint32_t *value)
{
    *value = 0;
    for (int digit = 0; digit < 4; digit++, in->at++) {
        if (in->at == in->end)
            return false;
        const char c = *in->at;
        if (c >= '0' && c <= '9')
            *value = *value << 4 | static_cast<uint32_t>(c - '0');
        else if ((c | 0x20) >= 'a' && (c | 0x20) <= 'f')
            *value = *value << 4 | static_cast<uint32_t>((c | 0x20) - 'a' + 10);
        else
            return false;
    }
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

// Behind a "\u": the code point, of two escapes where it takes a pair.
bool read_unicode(reader *in, uint32_t *point)
{
    if (!read_hex(in, point) || *point == 0)
        return false;
    if (*point < first_high_surrogate || *point > last_surrogate)
        return true;
    uint32_t low = 0;
    if (*point >= first_low_surrogate || in->end - in->at < 2 || in->at[0] != '\\' ||
        in->at[1] != 'u')
        return false;
    in->at += 2;
    if (!read_hex(in, &low) || low < first_low_surrogate || low > last_surrogate)
        return false;
    *point =
        first_supplementary + ((*point - first_high_surrogate) << 10) + (low - first_low_surrogate);
    return true;
}

bool read_string(reader *in, std::string_view *text)
{
    if (!take(in, '"'))
        return false;
    char *const begin = in->at;
    char *out = begin;
    while (in->at < in->end && *in->at != '"') {
        if (byte_of(*in->at) < 0x20)
            return false;
        if (*in->at != '\\') {
            *out++ = *in->at++;
            continue;
        }
        if (++in->at == in->end)
            return false;
        const char escape = *in->at++;
        constexpr std::string_view from = "\"\\/bfnrt";
        constexpr std::string_view to = "\"\\/\b\f\n\r\t";
        uint32_t point = 0;
        if (const size_t index = from.find(escape); index != std::string_view::npos)
            *out++ = to[index];
        else if (escape == 'u' && read_unicode(in, &point))
            out = put_utf8(out, point);
        else
            return false;
    }
    *text = {begin, static_cast<size_t>(out - begin)};
    return take(in, '"');
}

// A number or a word; recordings hold numbers alone where it matters, and read_seconds judges them.
bool read_word(reader *in, std::string_view *text)
{
    char *const begin = in->at;
    while (in->at < in->end && strchr("+-.0123456789Eaeflnrstu", *in->at) != nullptr &&
           *in->at != '\0')
        in->at++;
    *text = {begin, static_cast<size_t>(in->at - begin)};
    return !text->empty();
}

bool read_member(reader *in, json_member *member)
{
    if (!read_string(in, &member->name) || !take(in, ':'))
        return false;
    skip_blanks(in);
    member->is_string = in->at < in->end && *in->at == '"';
    return member->is_string ? read_string(in, &member->text) : read_word(in, &member->text);
}

} // namespace

void append(text_buffer *buffer, std::string_view text)
{
    if (text.size() > buffer->capacity - buffer->size) {
        buffer->full = true;
        return;
    }
    if (!text.empty())
        memcpy(buffer->data + buffer->size, text.data(), text.size());
    buffer->size += text.size();
}

void append_format(text_buffer *buffer, const char *format, ...)
{
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    const int size = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (size < 0 || static_cast<size_t>(size) >= sizeof text)
        buffer->full = true;
    else
        append(buffer, {text, static_cast<size_t>(size)});
}

void append_string(text_buffer *buffer, std::string_view text)
{
    append(buffer, "\"");
    while (!text.empty()) {
        uint32_t point = take_code_point(&text);
        if (point == no_code_point)
            point = replacement;
        if (point == '"' || point == '\\') {
            const std::array<char, 2> escape = {'\\', static_cast<char>(point)};
            append(buffer, {escape.data(), escape.size()});
        } else if (point >= 0x20 && point < 0x7F) {
            const char plain = static_cast<char>(point);
            append(buffer, {&plain, 1});
        } else if (point < first_supplementary) {
            append_format(buffer, "\\u%04x", point);
        } else {
            const uint32_t rest = point - first_supplementary;
            append_format(buffer, "\\u%04x\\u%04x", first_high_surrogate + (rest >> 10),
                          first_low_surrogate + (rest & 0x3FF));
        }
    }
    append(buffer, "\"");
}

bool read_object(char *line, size_t size, json_object *object)
{
    reader in = {line, line + size};
    object->count = 0;
    if (!take(&in, '{'))
        return false;
    if (!take(&in, '}')) {
        do {
            if (object->count == object->members.size() ||
                !read_member(&in, &object->members[object->count]))
                return false;
            object->count++;
        } while (take(&in, ','));
        if (!take(&in, '}'))
            return false;
    }
    skip_blanks(&in);
    return in.at == in.end;
}

const json_member *find_member(const json_object *object, std::string_view name)
{
    for (size_t index = 0; index < object->count; index++)
        if (object->members[index].name == name)
            return &object->members[index];
    return nullptr;
}

bool read_seconds(std::string_view text, int64_t *milliseconds)
{
    constexpr int64_t limit = 100'000'000'000;
    int64_t whole = 0;
    size_t digits = 0;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
        whole = std::min(limit + 1, whole * 10 + (text.front() - '0'));
        text.remove_prefix(1);
        digits++;
    }
    if (digits == 0 || whole > limit)
        return false;
    int64_t part = 0;
    if (!text.empty() && text.front() == '.') {
        text.remove_prefix(1);
        if (text.empty())
            return false;
        for (int64_t weight = 100; !text.empty(); weight /= 10, text.remove_prefix(1)) {
            if (text.front() < '0' || text.front() > '9')
                return false;
            part += weight * (text.front() - '0');
        }
    }
    *milliseconds = whole * 1000 + part;
    return text.empty();
}

} // namespace follow
