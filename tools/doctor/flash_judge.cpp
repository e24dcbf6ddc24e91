// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/doctor/flash_judge.h"

#include <algorithm>
#include <span>

#include "flash/crc32.h"
#include "flash/trailer.h"
#include "package/package.h"
#include "tools/common/failure.h"
#include "tools/common/files.h"
#include "tools/fwpkg/part_data.h"

namespace doctor {

namespace {

constexpr uint64_t trailer_size = sizeof(partition_trailer);

/// Why the package cannot be compared with; empty when it can.
std::string package_fault(const fwpkg::package_file &file, bool has_key)
{
    if (file.stage == fwpkg::read_stage::nothing)
        return "is no package: " + file.problem;
    if (!file.length_right)
        return "has another length than its header says";
    if (file.stage == fwpkg::read_stage::head)
        return has_key ? "cannot be deciphered: " + file.problem
                       : "is enciphered: --key-file with its key is needed behind it";
    if (!file.digest_right)
        return has_key ? "has another key than this one, or is damaged: its checksum is wrong"
                       : "is damaged: its checksum is wrong";
    return file.problem;
}

/// The whole part that explains the partition best.
std::optional<size_t> whole_part(const partition_verdict &verdict,
                                 const std::vector<known_part> &parts)
{
    std::optional<size_t> found;
    for (size_t index = 0; index < parts.size(); index++) {
        if (!verdict.comparison.presences[index].whole)
            continue;
        const bool named = verdict.trailer.length == parts[index].data.size() &&
                           verdict.trailer.crc == parts[index].crc;
        if (named)
            return index;
        if (!found || parts[index].data.size() > parts[*found].data.size())
            found = index;
    }
    return found;
}

/// The package whose upgrade wrote last: writing begins at block 0.
std::string last_package(const partition_verdict &verdict, const std::vector<known_part> &parts)
{
    for (const image::run &run : verdict.comparison.runs)
        if (!run.owners.empty())
            return parts[run.owners.front()].package;
    return {};
}

std::string advise(const partition_verdict &verdict, const std::vector<known_part> &parts)
{
    using image::trailer_state;
    const bool valid = verdict.trailer.state == trailer_state::valid;
    if (verdict.whole)
        return "Nothing: the partition is whole.";
    if (verdict.size < trailer_size)
        return "Take the dump again: it is too short for a partition.";
    if (verdict.holds && parts[*verdict.holds].data.size() > verdict.size - trailer_size)
        return "Make the part smaller: it reaches into the last 16 bytes, which the trailer takes.";
    if (verdict.holds)
        return "Run the upgrade again with " + parts[*verdict.holds].package +
               ": all its data is here, but the trailer is not its own.";
    if (verdict.content == image::content_state::mixed)
        return "Run the upgrade again with " + last_package(verdict, parts) +
               ": it writes everything anew. Do not start the device from this partition.";
    if (valid)
        return "Name the package that was installed with --package: the partition is whole, and of "
               "none of those given.";
    if (verdict.content == image::content_state::erased)
        return "Run the upgrade: the partition is erased.";
    return std::string("Run the upgrade again. Do not start the device from this partition") +
           (parts.empty() ? "; --package tells which blocks are whose." : ".");
}

} // namespace

std::string known_part::name() const
{
    return "part " + std::to_string(index) + " (" + type + ") of " + package;
}

std::vector<known_part> read_parts(const std::filesystem::path &path,
                                   const std::optional<std::string> &key)
{
    const fwpkg::package_file file = fwpkg::open_package(read_bytes(path, package_capacity), key);
    if (const std::string fault = package_fault(file, key.has_value()); !fault.empty())
        throw failure(path.string() + ": cannot be compared with: " + fault);
    const std::span<const uint8_t> blocks = fwpkg::whole_blocks(file.blocks.get());
    std::vector<known_part> parts;
    for (const fwpkg::part_entry &entry : file.parts) {
        if (!part_type_is_writable(entry.part.type))
            continue;
        const std::span<const uint8_t> data = fwpkg::written_data(blocks, entry.part);
        if (data.empty())
            continue;
        parts.push_back({path.string(), entry.index, part_type_names[entry.part.type],
                         std::vector<uint8_t>(data.begin(), data.end()),
                         crc32(0, data.data(), data.size())});
    }
    return parts;
}

partition_verdict judge_partition(const std::filesystem::path &path,
                                  const std::vector<known_part> &parts)
{
    const image::reader partition = image::file_reader(path);
    std::vector<image::candidate> candidates;
    for (const known_part &part : parts)
        candidates.push_back({part.name(), part.data});
    partition_verdict verdict;
    verdict.path = path.string();
    verdict.size = partition.size;
    verdict.trailer = image::judge_trailer(partition);
    verdict.comparison = image::compare(partition, candidates);
    verdict.content = image::judge_content(verdict.comparison);
    verdict.holds = whole_part(verdict, parts);
    verdict.whole = verdict.trailer.state == image::trailer_state::valid &&
                    (parts.empty() || verdict.holds.has_value());
    verdict.advice = advise(verdict, parts);
    return verdict;
}

} // namespace doctor
