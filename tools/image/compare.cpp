// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/image/compare.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

#include "flash/trailer.h"

namespace image {

namespace {

constexpr uint8_t erased_byte = 0xFF;

/// The candidates that a block is one of; counts what it finds.
std::vector<size_t> owners_of(uint64_t offset, std::span<const uint8_t> block,
                              std::span<const candidate> candidates, uint64_t data_end,
                              std::vector<presence> &presences)
{
    std::vector<size_t> owners;
    for (size_t index = 0; index < candidates.size(); index++) {
        const std::span<const uint8_t> data = candidates[index].data;
        const uint64_t end = std::min<uint64_t>({offset + block.size(), data.size(), data_end});
        if (offset >= end || memcmp(block.data(), data.data() + offset, end - offset) != 0)
            continue;
        owners.push_back(index);
        presences[index].matching++;
    }
    return owners;
}

void add_block(std::vector<run> &runs, uint64_t block, std::vector<size_t> owners, bool erased)
{
    erased = erased && owners.empty();
    if (!runs.empty()) {
        run &last = runs.back();
        std::vector<size_t> common;
        std::ranges::set_intersection(last.owners, owners, std::back_inserter(common));
        const bool goes_on =
            owners.empty() ? last.owners.empty() && last.erased == erased : !common.empty();
        if (goes_on) {
            last.count++;
            last.owners = std::move(common);
            return;
        }
    }
    runs.push_back({block, 1, std::move(owners), erased});
}

} // namespace

comparison compare(const reader &partition, std::span<const candidate> candidates)
{
    comparison result;
    result.presences.resize(candidates.size());
    const uint64_t data_end =
        partition.size < sizeof(partition_trailer) ? 0 : partition.size - sizeof(partition_trailer);
    each_piece(partition, partition.size, [&](uint64_t offset, std::span<const uint8_t> piece) {
        for (uint64_t at = 0; at < piece.size(); at += block_size) {
            const std::span block = piece.subspan(at, std::min(block_size, piece.size() - at));
            const bool erased =
                std::ranges::all_of(block, [](uint8_t byte) { return byte == erased_byte; });
            result.erased = result.erased && erased;
            add_block(result.runs, (offset + at) / block_size,
                      owners_of(offset + at, block, candidates, data_end, result.presences),
                      erased);
        }
        return true;
    });
    for (size_t index = 0; index < candidates.size(); index++) {
        const uint64_t size = candidates[index].data.size();
        presence &found = result.presences[index];
        found.blocks = (std::min(size, data_end) + block_size - 1) / block_size;
        found.whole = size <= partition.size && found.matching == found.blocks;
    }
    return result;
}

content_state judge_content(const comparison &result)
{
    if (result.erased)
        return content_state::erased;
    bool any = false;
    for (const presence &found : result.presences) {
        if (found.whole && found.blocks > 0)
            return content_state::whole;
        any = any || found.matching > 0;
    }
    return any ? content_state::mixed : content_state::unknown;
}

const char *name(content_state state)
{
    constexpr std::array names = {"erased", "whole", "mixed", "unknown"};
    return names[static_cast<size_t>(state)];
}

} // namespace image
