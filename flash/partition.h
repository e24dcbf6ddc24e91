// SPDX-License-Identifier: GPL-2.0-or-later
//
// Part types and their flash partitions.
#pragma once

#include <cstdint>

/// Whether parts of `type` are written to flash: kernel, base and app alone.
constexpr bool partition_is_writable(int32_t type)
{
    return type >= 2 && type <= 4;
}

/// A device name with its terminating NUL.
struct partition_name {
    char text[11];
};

/// "/dev/fla" and one character, whose code is that of '0' plus the low byte of `type`: types 0 to
/// 9 give the digits.
inline partition_name partition_device(int32_t type)
{
    partition_name name = {"/dev/fla"};
    name.text[8] = static_cast<char>('0' + (type & 0xFF));
    return name;
}
