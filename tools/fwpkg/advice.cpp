// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/advice.h"

#include <cctype>

#include "flash/trailer.h"
#include "tools/fwpkg/overlap.h"
#include "tools/fwpkg/text.h"
#include "tools/fwpkg/traps.h"

namespace fwpkg {
namespace {

using numbers = std::vector<std::pair<std::string, uint64_t>>;

void warn(std::vector<finding> &findings, const std::string &place, const std::string &message,
          numbers values = {})
{
    findings.push_back({severity::warning, place, message, std::move(values)});
}

bool is_optional(const part_entry &entry)
{
    return (entry.part.flags & part_flag_optional) != 0;
}

void advise_sizes(const part_entry &entry, std::vector<finding> &findings)
{
    const package_part &part = entry.part;
    if (part.size > 0 && part.actual_size == 0)
        warn(findings, entry.place(),
             "actual size 0: its " + std::to_string(part.size) +
                 " bytes are written without a look at the partition, and do not count as progress",
             {{"size", part.size}});
    else if (part.actual_size < part.size)
        warn(findings, entry.place(),
             "actual size " + std::to_string(part.actual_size) + " is less than its " +
                 std::to_string(part.size) + " bytes: the room is not checked for all of them",
             {{"actual_size", part.actual_size}, {"size", part.size}});
}

void advise_type(const part_entry &entry, std::vector<finding> &findings)
{
    const int type = entry.part.type;
    if (type >= part_type_count)
        warn(findings, entry.place(),
             "type " + std::to_string(type) + " is above " + std::to_string(part_type_count - 1) +
                 ": no device takes it" +
                 (is_optional(entry) ? "" : ", and every device refuses the package"),
             {{"type", static_cast<uint64_t>(type)}});
    else if (!part_type_is_writable(type) && entry.part.size > 0)
        warn(findings, entry.place(),
             "the flash writer refuses type " + std::to_string(type) +
                 ": the upgrade fails on each device that takes the part",
             {{"type", static_cast<uint64_t>(type)}});
}

void advise_trailer(const part_entry &entry, const named_device &device,
                    std::vector<finding> &findings)
{
    const auto partition = device.description.partitions.find(entry.part.type);
    if (entry.part.size == 0 || partition == device.description.partitions.end())
        return;
    const uint64_t needed = uint64_t{entry.part.size} + sizeof(partition_trailer);
    if (needed > partition->second)
        warn(findings, entry.place(),
             printable(device.name) + ": its " + std::to_string(entry.part.size) +
                 " bytes and the trailer's " + std::to_string(sizeof(partition_trailer)) +
                 " do not fit the partition of " + std::to_string(partition->second) + " bytes",
             {{"size", entry.part.size}, {"partition", partition->second}});
}

void advise_texts(const part_entry &entry, std::vector<finding> &findings)
{
    for (const std::string &trap : condition_traps(list_condition(entry.conditions())))
        warn(findings, entry.place() + " conditions", trap);
    for (const feature &feature : list_features(entry.features())) {
        const condition_item asked{0, 0, 0, true, true, feature.name, "x"};
        if (item_text(asked) != feature.name + "=x")
            warn(findings, entry.place() + " features",
                 "no requirement can ask for \"" + printable(feature.name) +
                     "\": a name is a letter or \"_\", then letters, digits, \"_\" and \"-\"");
    }
}

std::string configuration_text(const std::map<std::string, std::string> &configuration)
{
    std::string text;
    for (const auto &[name, value] : configuration)
        text +=
            (text.empty() ? " with " : ", ") + printable(name) + "=\"" + printable(value) + "\"";
    return text.empty() ? "every device" : "a device" + text;
}

void advise_pair(const part_entry &first, const part_entry &second, std::vector<finding> &findings)
{
    const std::string both = first.place() + " and " + second.place();
    const overlap_result result = find_overlap(first.conditions(), second.conditions());
    if (result.answer == overlap::some)
        warn(findings, both,
             "both apply to " + configuration_text(result.configuration) +
                 ", and are written to the same partition");
    else if (result.answer == overlap::unknown)
        warn(findings, both, "may both apply to one device: their conditions are too many to try");
    else if (!is_optional(first) || !is_optional(second))
        warn(
            findings, both,
            "exclude each other, but " + (is_optional(first) ? second : first).place() +
                " is not optional: a device that does not meet its conditions refuses the package");
}

void advise_same_types(const std::vector<part_entry> &parts, std::vector<finding> &findings)
{
    for (size_t second = 1; second < parts.size(); second++) {
        bool repeated = false;
        for (size_t first = 0; first < second; first++) {
            if (parts[first].part.type != parts[second].part.type)
                continue;
            advise_pair(parts[first], parts[second], findings);
            repeated = true;
        }
        if (repeated && parts[second].part.type < part_type_count)
            warn(findings, parts[second].place(),
                 "not the first of its type: a device that sets " +
                     requirement_variable(type_name(parts[second].part.type)) +
                     (is_optional(parts[second]) ? " drops it" : " refuses the package"));
    }
}

} // namespace

std::vector<finding> advise(const package_file &file, const std::vector<named_device> &devices)
{
    std::vector<finding> findings;
    if (file.parts.empty())
        warn(findings, "part table", "no parts: nothing would be written");
    for (const part_entry &entry : file.parts) {
        advise_type(entry, findings);
        advise_sizes(entry, findings);
        advise_texts(entry, findings);
        for (const named_device &device : devices)
            advise_trailer(entry, device, findings);
    }
    advise_same_types(file.parts, findings);
    return findings;
}

} // namespace fwpkg
