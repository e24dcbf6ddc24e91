// SPDX-License-Identifier: GPL-2.0-or-later
//
// Numbers out of text, the same on every machine: `long` has 32 bits on the device and 64 on a
// host.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>

/// The base that the number at the start of `text` is written in: "0x" for hexadecimal, a leading
/// "0" for octal, else decimal. Not left to strtol, which in newer C libraries takes "0b" as well.
inline int base_of_number(const char *text)
{
    while (isspace(static_cast<unsigned char>(*text)) != 0)
        text++;
    if (*text == '-' || *text == '+')
        text++;
    if (*text != '0')
        return 10;
    return text[1] == 'x' || text[1] == 'X' ? 16 : 8;
}

/// The signed number at the start of `text` as strtol reads it (leading blanks, a sign, `base`;
/// base 0 is that of `base_of_number`), limited to 32 bits. 0 without digits.
/// `*end`, unless `end` is null, is set behind the last digit, to `text` without digits.
inline int32_t number_from_text(const char *text, int base, char **end)
{
    const long long number = strtoll(text, end, base == 0 ? base_of_number(text) : base);
    return static_cast<int32_t>(std::clamp<long long>(number, INT32_MIN, INT32_MAX));
}
