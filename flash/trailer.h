// SPDX-License-Identifier: GPL-2.0-or-later
//
// The trailer of a written partition: its last 16 bytes, which the boot loader checks before it
// starts what the partition holds.
#pragma once

#include <cstdint>

/// All fields in the device's native byte order.
struct partition_trailer {
    uint32_t crc;    ///< CRC-32 of all bytes handed to the device
    uint32_t length; ///< their number
    uint32_t check;  ///< crc + length + magic, modulo 2^32
    uint32_t magic;  ///< partition_trailer_magic
};
static_assert(sizeof(partition_trailer) == 16);

constexpr uint32_t partition_trailer_magic = 0x44427031;

/// The check word that belongs to the other fields.
constexpr uint32_t trailer_check(uint32_t crc, uint32_t length)
{
    return crc + length + partition_trailer_magic;
}

/// Whether magic and check word are right. It says nothing of the data.
constexpr bool trailer_is_consistent(const partition_trailer &trailer)
{
    return trailer.magic == partition_trailer_magic &&
           trailer.check == trailer_check(trailer.crc, trailer.length);
}
