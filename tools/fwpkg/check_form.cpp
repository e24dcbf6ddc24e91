// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/checks.h"

#include <algorithm>

#include "package/conditions.h"
#include "tools/fwpkg/condition_code.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

void check_header(const package_file &file, findings &to)
{
    if (file.stage == read_stage::nothing) {
        to.error("header", file.problem);
        return;
    }
    if (!file.length_right)
        to.error("header", "says {header_size} bytes, the file has {file_size}",
                 {{"header_size", file.record.size}, {"file_size", file.size}});
    if (file.stage == read_stage::head)
        to.error("header", file.problem);
    if (file.stage >= read_stage::deciphered && file.length_right && !file.digest_right)
        to.error("header",
                 "digest " + content_identifier(file) + ", the data has " +
                     hex_digest(file.digest) +
                     (file.stage == read_stage::table ? "" : ": another key, or damaged"));
}

void check_entry(const part_entry &entry, findings &to)
{
    const uint32_t end = entry.position + entry.header_size;
    if (entry.features_end() > end)
        to.error(entry.place(),
                 "its fields end at byte {fields_end}, its entry at byte {entry_end}",
                 {{"fields_end", entry.features_end()}, {"entry_end", end}});
    if (end > block_size)
        to.error(entry.place(),
                 "its entry ends at byte {entry_end}, behind the first block of {block_size}",
                 {{"entry_end", end}, {"block_size", block_size}});
    const uint32_t unknown = entry.part.flags & ~part_flag_optional;
    if (unknown != 0)
        to.warning(entry.place(), "flags that no device knows: {flags}", {{"flags", unknown}});
}

void check_conditions(const part_entry &entry, findings &to)
{
    const std::string place = entry.place() + " conditions";
    const std::vector<condition_item> items = list_condition(entry.conditions());
    for (const condition_item &item : items) {
        const uint32_t position =
            entry.conditions_position() + static_cast<uint32_t>(item.position);
        if (!item.complete)
            to.error(place,
                     "the comparison at byte {position} does not end inside the code: the device "
                     "takes it all as met",
                     {{"position", position}});
        else if (!item.comparison && item.code < condition_close && item.code != condition_open &&
                 (item.code < condition_and_not || item.code > condition_and))
            to.warning(place, "byte {position} is {code}, which means nothing and is skipped",
                       {{"position", position}, {"code", item.code}});
    }
    if (!items.empty() && items.back().complete && items.back().code != condition_close)
        to.warning(place, "the code does not end with its closing byte, 255");
}

void check_features(const part_entry &entry, findings &to)
{
    for (const feature &each : list_features(entry.features())) {
        if (!each.complete)
            to.error(entry.place() + " features",
                     "\"" + printable(each.name) +
                         "\" has no value that ends before byte {features_end}: the device does "
                         "not find it",
                     {{"features_end", entry.features_end()}});
    }
}

void check_data(const part_entry &entry, const package_file &file, findings &to)
{
    const uint32_t offset = entry.part.offset;
    if (entry.part.size == 0)
        return;
    const uint64_t end = uint64_t{offset} + entry.part.size;
    if (offset % block_size != 0)
        to.error(entry.place(),
                 "its data begins at byte {offset}, the device writes from byte {written_from}",
                 {{"offset", offset}, {"written_from", offset - offset % block_size}});
    if (offset < block_size)
        to.error(entry.place(),
                 "its data begins at byte {offset}, in the block of the header and the part table",
                 {{"offset", offset}});
    if (end > file.size)
        to.error(entry.place(), "its data ends at byte {data_end}, the package at byte {file_size}",
                 {{"data_end", end}, {"file_size", file.size}});
}

void check_overlaps(const std::vector<part_entry> &parts, findings &to)
{
    const auto end_of = [](const package_part &part) { return uint64_t{part.offset} + part.size; };
    for (size_t second = 1; second < parts.size(); second++) {
        for (size_t first = 0; first < second; first++) {
            const package_part &a = parts[first].part;
            const package_part &b = parts[second].part;
            const uint64_t begin = std::max(a.offset, b.offset);
            const uint64_t end = std::min(end_of(a), end_of(b));
            if (begin < end)
                to.error(parts[first].place() + " and " + parts[second].place(),
                         "share the bytes {begin} to " + std::to_string(end - 1),
                         {{"begin", begin}, {"end", end}});
        }
    }
}

void check_behind_table(const package_file &file, findings &to)
{
    if (file.parts.size() < package_part_count || file.table_end + 2 > block_size)
        return;
    const uint8_t *next = file.blocks->blocks[0] + file.table_end;
    if (next[0] != 0 || next[1] != 0)
        to.warning("part table",
                   "something like a further entry at byte {position}: only " +
                       std::to_string(package_part_count) + " are read",
                   {{"position", file.table_end}});
}

} // namespace

std::vector<finding> check_form(const package_file &file)
{
    findings to;
    check_header(file, to);
    if (file.stage < read_stage::table)
        return to.all;
    if (!file.problem.empty())
        to.error("part table", file.problem);
    for (const part_entry &entry : file.parts) {
        check_entry(entry, to);
        check_conditions(entry, to);
        check_features(entry, to);
        check_data(entry, file, to);
    }
    check_overlaps(file.parts, to);
    check_behind_table(file, to);
    return to.all;
}

} // namespace fwpkg
