// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/checks.h"

#include "tools/device/device.h"
#include "tools/fwpkg/check_condition.h"
#include "tools/fwpkg/condition_code.h"
#include "tools/fwpkg/overlap.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

void check_sizes(const part_entry &entry, findings &to)
{
    const package_part &part = entry.part;
    if (part.size > 0 && part.actual_size == 0)
        to.warning(entry.place(),
                   "actual size 0: its {size} bytes are written without a look at the partition, "
                   "and do not count as progress",
                   {{"size", part.size}});
    else if (part.actual_size < part.size)
        to.warning(entry.place(),
                   "actual size {actual_size} is less than its {size} bytes: the room is not "
                   "checked for all of them",
                   {{"actual_size", part.actual_size}, {"size", part.size}});
}

void check_type(const part_entry &entry, findings &to)
{
    const auto type = static_cast<uint64_t>(entry.part.type);
    if (entry.part.type >= part_type_count)
        to.warning(entry.place(),
                   "type {type} is above " + std::to_string(part_type_count - 1) +
                       ": no device takes it" +
                       (entry.is_optional() ? "" : ", and every device refuses the package"),
                   {{"type", type}});
    else if (!part_type_is_writable(entry.part.type) && entry.part.size > 0)
        to.warning(entry.place(),
                   "the flash writer refuses type {type}: the upgrade fails on each device that "
                   "takes the part",
                   {{"type", type}});
}

void check_texts(const part_entry &entry, findings &to)
{
    for (const std::string &text : condition_warnings(list_condition(entry.conditions())))
        to.warning(entry.place() + " conditions", text);
    for (const feature &each : list_features(entry.features())) {
        const condition_item asked{0, 0, 0, true, true, each.name, "x"};
        if (item_text(asked) != each.name + "=x")
            to.warning(
                entry.place() + " features",
                "no requirement can ask for \"" + printable(each.name) +
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

void check_pair(const part_entry &first, const part_entry &second, findings &to)
{
    const std::string both = first.place() + " and " + second.place();
    const overlap_result result = find_overlap(first.conditions(), second.conditions());
    if (result.answer == overlap::some)
        to.warning(both, "both apply to " + configuration_text(result.configuration) +
                             ", and are written to the same partition");
    else if (result.answer == overlap::too_many)
        to.warning(both, "may both apply to one device: their conditions are too many to try");
    else if (result.answer == overlap::mixed)
        to.warning(both, "may both apply to one device: they compare a name as text and as number, "
                         "and values that do not look alike may then be equal");
    else if (!first.is_optional() || !second.is_optional())
        to.warning(
            both,
            "exclude each other, but " + (first.is_optional() ? second : first).place() +
                " is not optional: a device that does not meet its conditions refuses the package");
}

void check_same_types(const std::vector<part_entry> &parts, findings &to)
{
    for (size_t second = 1; second < parts.size(); second++) {
        bool repeated = false;
        for (size_t first = 0; first < second; first++) {
            if (parts[first].part.type != parts[second].part.type)
                continue;
            check_pair(parts[first], parts[second], to);
            repeated = true;
        }
        if (repeated && parts[second].part.type < part_type_count)
            to.warning(parts[second].place(),
                       "not the first of its type: a device that sets " +
                           requirement_variable(type_name(parts[second].part.type)) +
                           (parts[second].is_optional() ? " drops it" : " refuses the package"));
    }
}

} // namespace

std::vector<finding> check_use(const package_file &file)
{
    findings to;
    if (file.parts.empty())
        to.warning("part table", "no parts: nothing would be written");
    for (const part_entry &entry : file.parts) {
        check_type(entry, to);
        check_sizes(entry, to);
        check_texts(entry, to);
    }
    check_same_types(file.parts, to);
    return to.all;
}

} // namespace fwpkg
