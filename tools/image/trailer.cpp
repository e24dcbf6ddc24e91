// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/image/trailer.h"

#include <array>
#include <cstring>

#include "flash/crc32.h"
#include "flash/trailer.h"

namespace image {

trailer_verdict judge_trailer(const reader &partition)
{
    trailer_verdict verdict;
    partition_trailer trailer;
    std::array<uint8_t, sizeof trailer> bytes;
    if (partition.size < bytes.size())
        return verdict;
    partition.read(partition.size - bytes.size(), bytes);
    memcpy(&trailer, bytes.data(), sizeof trailer);
    verdict.crc = trailer.crc;
    verdict.length = trailer.length;
    verdict.check = trailer.check;
    verdict.magic = trailer.magic;
    verdict.magic_right = trailer.magic == partition_trailer_magic;
    verdict.check_right = trailer.check == trailer_check(trailer.crc, trailer.length);
    if (!verdict.magic_right || !verdict.check_right)
        return verdict;
    verdict.state = trailer_state::crc_wrong;
    if (trailer.length > partition.size)
        return verdict;
    uint32_t crc = 0;
    each_piece(partition, trailer.length, [&crc](uint64_t, std::span<const uint8_t> piece) {
        crc = crc32(crc, piece.data(), piece.size());
        return true;
    });
    verdict.content_crc = crc;
    if (crc == trailer.crc)
        verdict.state = trailer_state::valid;
    return verdict;
}

const char *name(trailer_state state)
{
    constexpr std::array names = {"no trailer", "CRC wrong", "valid"};
    return names[static_cast<size_t>(state)];
}

} // namespace image
