// SPDX-License-Identifier: GPL-2.0-or-later
//
// The device's own surroundings, for the device's own code: a package in a block buffer as after a
// download, and its diagnostics caught as text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "download/iobuf.h"
#include "package/format.h"

namespace fwpkg {

constexpr int block_size = package_block_size;

/// A device never releases its buffer; here it goes with its owner.
struct buffer_release {
    void operator()(iobuf *buffer) const;
};
using block_buffer = std::unique_ptr<iobuf, buffer_release>;

/// A buffer that holds `bytes`, at most package_capacity, as after a download. At least one block
/// is there, even for no bytes.
block_buffer load_blocks(std::span<const uint8_t> bytes);

/// The bytes that the buffer holds.
std::vector<uint8_t> store_blocks(const iobuf *buffer);

/// The blocks of a buffer that load_blocks made, the last one whole: what the device writes parts
/// from. Lives as long as the buffer.
std::span<const uint8_t> whole_blocks(const iobuf *buffer);

/// While it lives, what the device's code prints on standard error is kept as text instead of
/// shown: fwpkg says it in its own lines, and the line that names the key is never shown at all.
/// Not to be nested.
class device_words {
public:
    device_words();
    ~device_words();
    device_words(const device_words &) = delete;
    device_words &operator=(const device_words &) = delete;

    /// The lines so far without the last newline, joined by "; ".
    std::string lines();

private:
    FILE *shown;
    FILE *kept;
    char *text = nullptr;
    size_t length = 0;
};

} // namespace fwpkg
