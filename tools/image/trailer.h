// SPDX-License-Identifier: GPL-2.0-or-later
//
// A partition's trailer, judged: what a boot loader could know of the partition by itself.
#pragma once

#include <cstdint>
#include <optional>

#include "tools/image/reader.h"

namespace image {

/// The one vocabulary for it in all tools.
enum class trailer_state {
    none,      ///< "no trailer": magic or check word is wrong, or there are less than 16 bytes
    crc_wrong, ///< "CRC wrong": magic and check word are right, the CRC over the length is not
    valid,     ///< "valid": that as well
};

struct trailer_verdict {
    trailer_state state = trailer_state::none;
    uint32_t crc = 0;         ///< the four words as they stand, whatever the state;
    uint32_t length = 0;      ///< 0 where there are less than 16 bytes
    uint32_t check = 0;       ///<
    uint32_t magic = 0;       ///<
    bool check_right = false; ///< check is crc + length + magic
    bool magic_right = false; ///<
    /// Of the first `length` bytes; none without a trailer, and where the length is above the
    /// partition's size, which makes the state crc_wrong.
    std::optional<uint32_t> content_crc;
};

/// Judges the partition's last 16 bytes, words in this machine's byte order (docs/power-cuts.md has
/// the layout), and reads the bytes that they cover. A length of 0 is valid with the CRC 0. Throws
/// what the reader throws.
trailer_verdict judge_trailer(const reader &partition);

/// "valid", "CRC wrong", "no trailer".
const char *name(trailer_state state);

} // namespace image
