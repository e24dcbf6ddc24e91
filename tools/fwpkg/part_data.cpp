// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/part_data.h"

#include <zlib.h>

#include "tools/common/failure.h"
#include "tools/common/sha256.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

std::string file_name(const part_entry &entry)
{
    const std::string type = type_name(entry.part.type);
    const bool usable = type.find('<') == std::string::npos;
    return std::to_string(entry.index) + "-" +
           (usable ? type : "type" + std::to_string(entry.part.type)) + ".bin";
}

} // namespace

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

std::vector<extracted_part> extract_parts(const package_file &file)
{
    if (!file.problem.empty())
        throw failure(file.problem, exit_bad);
    if (!file.length_right || !file.digest_right)
        throw failure(file.length_right ? "the digest is wrong" : "the length is wrong", exit_bad);
    std::vector<extracted_part> parts;
    for (const part_entry &entry : file.parts) {
        const uint64_t begin = entry.part.offset;
        const uint64_t end = begin + entry.part.size;
        if (entry.part.size == 0)
            continue;
        const bool outside = end > file.size;
        if (outside || begin % block_size != 0)
            throw failure(entry.place() + ": its data, bytes " + std::to_string(begin) + " to " +
                              std::to_string(end) +
                              (outside
                                   ? ", is not inside the package of " + std::to_string(file.size)
                                   : ", does not begin at the start of a block"),
                          exit_bad);
        parts.push_back(
            {file_name(entry), written_data(whole_blocks(file.blocks.get()), entry.part)});
    }
    return parts;
}

} // namespace fwpkg
