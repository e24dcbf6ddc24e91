// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/common/printable.h"

#include <cstdint>
#include <cstdio>

namespace {

/// Length of the well-formed UTF-8 sequence (RFC 3629, section 4) that `text` begins with and its
/// code point, or 0.
size_t utf8_sequence(std::string_view text, uint32_t &point)
{
    const auto byte = [&](size_t i) -> uint32_t { return static_cast<uint8_t>(text[i]); };
    const uint32_t first = byte(0);
    size_t length = 1;
    if (first >= 0xC2 && first <= 0xDF)
        length = 2;
    else if (first >= 0xE0 && first <= 0xEF)
        length = 3;
    else if (first >= 0xF0 && first <= 0xF4)
        length = 4;
    else if (first >= 0x80)
        return 0;
    if (length > text.size())
        return 0;
    point = length == 1 ? first : first & (0xFFU >> (length + 1));
    for (size_t i = 1; i < length; i++) {
        if ((byte(i) & 0xC0U) != 0x80)
            return 0;
        point = point << 6 | (byte(i) & 0x3FU);
    }
    const bool overlong = (length == 3 && point < 0x800) || (length == 4 && point < 0x10000);
    const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
    return overlong || surrogate || point > 0x10FFFF ? 0 : length;
}

bool is_safe(uint32_t point)
{
    if (point < 0x20 || (point >= 0x7F && point < 0xA0))
        return false;
    const bool turns_direction = point == 0x61C || (point >= 0x200E && point <= 0x200F) ||
                                 (point >= 0x2028 && point <= 0x202E) ||
                                 (point >= 0x2066 && point <= 0x2069);
    return !turns_direction;
}

} // namespace

bool is_printable(std::string_view text)
{
    while (!text.empty()) {
        uint32_t point = 0;
        const size_t length = utf8_sequence(text, point);
        if (length == 0 || !is_safe(point))
            return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string printable(std::string_view text)
{
    if (is_printable(text))
        return std::string(text);
    std::string result;
    for (const char c : text) {
        if (c >= 0x20 && c < 0x7F && c != '\\') {
            result += c;
            continue;
        }
        char escape[5];
        snprintf(escape, sizeof escape, "\\x%02x", static_cast<uint8_t>(c));
        result += escape;
    }
    return result;
}
