// SPDX-License-Identifier: GPL-2.0-or-later
//
// What a partition holds, wherever it lies: in a dump, in the device itself, in memory. It is read
// in pieces, so that it may be larger than the memory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>

namespace image {

/// A partition's content.
struct reader {
    uint64_t size = 0; ///< bytes of the whole partition
    /// Fills all of `into` from position `offset`; both lie within the size. Throws failure
    /// (tools/common/failure.h) where that much cannot be read.
    std::function<void(uint64_t offset, std::span<uint8_t> into)> read;
};

/// A file or a block device of any size, open as long as a copy of the reader lives. Throws
/// failure for one that cannot be opened and for what has no size, a pipe for instance.
reader file_reader(const std::filesystem::path &path);

/// Memory that outlives the reader.
reader memory_reader(std::span<const uint8_t> content);

/// Calls `take` for the bytes from 0 to `size` in order, in pieces of at most 64 KiB, until they
/// are all told or it gives false. Pieces but the last have whole blocks of 4096 bytes.
void each_piece(const reader &partition, uint64_t size,
                const std::function<bool(uint64_t offset, std::span<const uint8_t>)> &take);

} // namespace image
