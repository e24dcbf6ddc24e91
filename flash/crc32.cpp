// SPDX-License-Identifier: GPL-2.0-or-later
#include "flash/crc32.h"

#include <array>

namespace {

constexpr uint32_t polynomial = 0xEDB88320;

constexpr std::array<uint32_t, 256> make_table()
{
    std::array<uint32_t, 256> entries = {};
    for (uint32_t i = 0; i < entries.size(); i++) {
        uint32_t value = i;
        for (int bit = 0; bit < 8; bit++)
            value = (value & 1) != 0 ? value >> 1 ^ polynomial : value >> 1;
        entries[i] = value;
    }
    return entries;
}

constexpr std::array<uint32_t, 256> table = make_table();
static_assert(table[1] == 0x77073096 && table[255] == 0x2D02EF8D);

} // namespace

uint32_t crc32(uint32_t crc, const uint8_t *data, size_t length)
{
    if (data == nullptr)
        return 0;
    crc = ~crc;
    for (size_t i = 0; i < length; i++)
        crc = table[(crc ^ data[i]) & 0xFF] ^ crc >> 8;
    return ~crc;
}
