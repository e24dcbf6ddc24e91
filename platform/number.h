// SPDX-License-Identifier: GPL-2.0-or-later
//
// Numbers out of text, the same on every machine: `long` has 32 bits on the device and 64 on a
// host.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>

/// The signed number at the start of `text` as strtol reads it (leading blanks, a sign, `base`;
/// base 0 takes "0x" for hexadecimal and a leading "0" for octal), limited to 32 bits. 0 without
/// digits.
/// `*end`, unless `end` is null, is set behind the last digit, to `text` without digits.
inline int32_t number_from_text(const char *text, int base, char **end)
{
    const long long number = strtoll(text, end, base);
    return static_cast<int32_t>(std::clamp<long long>(number, INT32_MIN, INT32_MAX));
}
