// SPDX-License-Identifier: GPL-2.0-or-later
//
// Big-endian numbers in bytes, at any alignment: files of the package format and network packets.
#pragma once

#include <cstdint>

/// The number in the two bytes at `bytes`.
constexpr uint16_t load_be16(const uint8_t *bytes)
{
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

/// The number in the four bytes at `bytes`.
constexpr uint32_t load_be32(const uint8_t *bytes)
{
    return static_cast<uint32_t>(load_be16(bytes)) << 16 | load_be16(bytes + 2);
}

/// Stores `value` in the two bytes at `bytes`.
constexpr void store_be16(uint8_t *bytes, uint16_t value)
{
    bytes[0] = static_cast<uint8_t>(value >> 8);
    bytes[1] = static_cast<uint8_t>(value);
}

/// Stores `value` in the four bytes at `bytes`.
constexpr void store_be32(uint8_t *bytes, uint32_t value)
{
    store_be16(bytes, static_cast<uint16_t>(value >> 16));
    store_be16(bytes + 2, static_cast<uint16_t>(value));
}
