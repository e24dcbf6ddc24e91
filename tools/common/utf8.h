// SPDX-License-Identifier: GPL-2.0-or-later
//
// Reading UTF-8 (RFC 3629). It needs no library, so that programs of the device have it as well.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

constexpr uint32_t no_code_point = UINT32_MAX;

/// Takes the code point that `text`, which is not empty, begins with off its front. Where no
/// well-formed sequence begins it takes one byte and returns no_code_point.
inline uint32_t take_code_point(std::string_view *text)
{
    constexpr std::array<uint32_t, 4> least = {0, 0x80, 0x800, 0x10000};
    const auto byte = [text](size_t at) -> uint32_t { return static_cast<uint8_t>((*text)[at]); };
    const uint32_t first = byte(0);
    const size_t more = first < 0x80 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : 3;
    bool good = (first < 0x80 || (first >= 0xC2 && first <= 0xF4)) && more < text->size();
    uint32_t point = more == 0 ? first : first & (0x3FU >> more);
    for (size_t at = 1; good && at <= more; at++) {
        good = (byte(at) & 0xC0U) == 0x80;
        point = point << 6 | (byte(at) & 0x3FU);
    }
    const bool surrogate = point >= 0xD800 && point <= 0xDFFF;
    good = good && point >= least[more] && point <= 0x10FFFF && !surrogate;
    text->remove_prefix(good ? more + 1 : 1);
    return good ? point : no_code_point;
}
