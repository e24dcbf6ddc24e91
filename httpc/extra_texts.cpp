// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/extra_texts.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "httpc/httpc_client.h"
#include "platform/diagnostic.h"

namespace {

constexpr int header_name_size = 32;
constexpr int header_value_size = 64;

int64_t encoded_length(const char *text)
{
    int64_t length = 0;
    for (; *text != '\0'; text++)
        length += *text == ' ' || _safe_char(*text) == 1 ? 1 : 3;
    return length;
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): see the header

int _safe_char(char byte)
{
    const bool safe = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                      (byte >= '0' && byte <= '9') || byte == '.' || byte == '_' || byte == '-';
    return safe ? 1 : 0;
}

int _encode_string(const char *source, char *destination, int size)
{
    constexpr char digits[] = "0123456789ABCDEF";
    const int64_t limit = size;
    int position = 0;
    for (; *source != '\0' && position < limit - 1; source++) {
        if (*source == ' ') {
            destination[position++] = '+';
        } else if (_safe_char(*source) == 1) {
            destination[position++] = *source;
        } else {
            if (position + 3 >= limit)
                return -1;
            const auto byte = static_cast<uint8_t>(*source);
            destination[position++] = '%';
            destination[position++] = digits[byte >> 4];
            destination[position++] = digits[byte & 15];
        }
    }
    return *source == '\0' ? position : -1;
}

int _encode_content(const char *name, const char *value, char *destination, int size)
{
    const int name_length = _encode_string(name, destination, size);
    if (name_length < 0)
        return -1;
    destination[name_length] = '=';
    // Kept: the value has the name's limit, not what is left of it.
    const int value_length = _encode_string(value, destination + name_length + 1, size);
    if (value_length < 0)
        return -1;
    return name_length + 1 + value_length;
}

int _encode_contents(const char *name, const char *value, char *buffer, int size)
{
    const auto length = static_cast<int>(strlen(buffer));
    const int start = length == 0 ? 0 : length + 1;
    // Judged beforehand, since the pair's own limits would let it run past the buffer.
    if (start + encoded_length(name) + 1 + encoded_length(value) >= size) {
        diagnose_recv(diagnostic_here(diagnostic_http_priv));
        return -1;
    }
    if (length != 0)
        buffer[length] = '&';
    return start + _encode_content(name, value, buffer + start, size - start);
}

void _httpc_parse_headers(httpc_client *client, const char *text)
{
    char value[header_value_size] = {};
    for (;;) { // each turn consumes a name and its colon
        char name[header_name_size] = {};
        while (isspace(static_cast<uint8_t>(*text)) != 0)
            text++;
        const char *colon = strchr(text, ':');
        if (colon == nullptr)
            return;
        memcpy(name, text, std::min<size_t>(static_cast<size_t>(colon - text), sizeof(name) - 1));
        text = colon[1] == '\0' ? colon + 1 : colon + 2; // behind the blank
        const size_t length = strcspn(text, "\r\n");
        // Kept: only the value's own length is overwritten, so a longer one before it shows behind.
        memcpy(value, text, std::min(length, sizeof(value) - 1));
        _httpc_add_var(&client->headers, name, value);
        text += length;
        for (int skip = *text == '\r' ? 2 : 1; skip > 0 && *text != '\0'; skip--)
            text++;
    }
}

void _httpc_parse_content(char *out, const char *text)
{
    while (*text != '\0') {
        if (*text == '%' && text[1] != '\0' && text[2] != '\0') {
            // Kept: the escape's second character alone counts, as a decimal digit.
            *out++ = text[2] >= '0' && text[2] <= '9' ? static_cast<char>(text[2] - '0') : '\0';
            text += 3;
        } else {
            *out++ = *text == '+' ? ' ' : *text;
            text++;
        }
    }
    *out = '\0';
}

// NOLINTEND(bugprone-reserved-identifier)
