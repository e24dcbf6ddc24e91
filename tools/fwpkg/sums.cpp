// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/sums.h"

#include <zlib.h>

#include "tools/common/sha256.h"

namespace fwpkg {

std::span<const uint8_t> written_data(std::span<const uint8_t> blocks, const package_part &part)
{
    const uint64_t begin = part.offset - part.offset % block_size;
    if (begin + part.size > blocks.size())
        return {};
    return blocks.subspan(begin, part.size);
}

std::vector<std::optional<part_sums>> sum_parts(const package_file &file)
{
    const std::span<const uint8_t> blocks = whole_blocks(file.blocks.get());
    std::vector<std::optional<part_sums>> sums;
    for (const part_entry &entry : file.parts) {
        const std::span<const uint8_t> data = written_data(blocks, entry.part);
        sums.emplace_back();
        if (!data.empty())
            sums.back() = part_sums{static_cast<uint32_t>(crc32_z(0, data.data(), data.size())),
                                    sha256_text(data)};
    }
    return sums;
}

} // namespace fwpkg
