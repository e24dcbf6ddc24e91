// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/common/printable.h"

#include <cstdint>
#include <cstdio>

#include "tools/common/utf8.h"

namespace {

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
        const uint32_t point = take_code_point(&text);
        if (point == no_code_point || !is_safe(point))
            return false;
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
