// SPDX-License-Identifier: GPL-2.0-or-later
//
// Whose data a partition holds: compared block by block with what packages would have written to
// it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "package/format.h"
#include "tools/image/reader.h"

namespace image {

constexpr uint64_t block_size = package_block_size; ///< one write of the device each

/// What one part of one package would leave, from the partition's first byte on.
struct candidate {
    std::string name; ///< for whoever shows the result; not looked at
    std::span<const uint8_t> data;
};

/// Blocks in a row that hold the same.
struct run {
    uint64_t first; ///< block, from 0
    uint64_t count; ///< of blocks, at least 1; the partition's last block may be a shorter one
    std::vector<size_t> owners; ///< candidates whose data all of these blocks hold; may be empty
    bool erased;                ///< no owner, and every byte is FF
};

/// How much of a candidate is there.
struct presence {
    uint64_t blocks = 0;   ///< of the partition that its data can be compared with
    uint64_t matching = 0; ///< of these: as the candidate has them
    /// All of its data is there: `matching` is `blocks`, and it fits into the partition.
    bool whole = false;
};

struct comparison {
    std::vector<run> runs;           ///< from block 0 to the partition's end, without a gap
    std::vector<presence> presences; ///< one a candidate, in the candidates' order
    bool erased = true;              ///< every byte of the partition is FF
};

/// What the whole partition is, in words that all tools use.
enum class content_state {
    erased,  ///< "erased": every byte is FF (or there is none)
    whole,   ///< "whole": all of at least one candidate's data
    mixed,   ///< "mixed": blocks of candidates, of none of them all
    unknown, ///< "unknown": no block of any candidate
};

/// Compares the partition with any number of candidates, also none.
///
/// A block is a candidate's when the bytes that the candidate has in it are the same: of its last
/// block, only those that it has; of the partition's last 16 bytes, none, since the trailer covers
/// them. Behind its data a block is not the candidate's. Runs are as long as can be from the front:
/// a block that belongs to several candidates continues the run that it follows. Throws what the
/// reader throws.
comparison compare(const reader &partition, std::span<const candidate> candidates);

/// The same, in one word. A candidate without data is never "whole" of anything.
content_state judge_content(const comparison &result);

/// "erased", "whole", "mixed", "unknown".
const char *name(content_state state);

} // namespace image
