// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/extractor.h"

#include <cctype>

#include "tools/common/failure.h"
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

std::vector<extracted_part> extract_parts(const package_file &file)
{
    if (!file.problem.empty())
        throw failure(file.problem, exit_bad);
    if (!file.length_right || !file.digest_right)
        throw failure(file.length_right ? "the digest is wrong" : "the length is wrong", exit_bad);
    const std::vector<uint8_t> bytes = store_blocks(file.blocks.get());
    std::vector<extracted_part> parts;
    for (const part_entry &entry : file.parts) {
        const uint64_t begin = entry.part.offset;
        const uint64_t end = begin + entry.part.size;
        if (entry.part.size == 0)
            continue;
        if (end > bytes.size() || begin % block_size != 0)
            throw failure(entry.place() + ": its data, bytes " + std::to_string(begin) + " to " +
                              std::to_string(end) +
                              (end > bytes.size() ? ", is not inside the package of " +
                                                        std::to_string(bytes.size())
                                                  : ", does not begin at the start of a block"),
                          exit_bad);
        parts.push_back({file_name(entry),
                         {bytes.begin() + static_cast<ptrdiff_t>(begin),
                          bytes.begin() + static_cast<ptrdiff_t>(end)}});
    }
    return parts;
}

} // namespace fwpkg
