// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/difference.h"
#include "tools/fwpkg/plan_report.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

/// "3 of 12 blocks differ: 0 to 2" with the first few runs.
std::string blocks_text(const changed_blocks &blocks)
{
    constexpr size_t run_limit = 8;
    const int64_t all = std::max(blocks.before, blocks.after);
    if (blocks.changed == 0)
        return "the same " + count_of(static_cast<uint64_t>(all), "block");
    std::string text = std::to_string(blocks.changed) + " of " +
                       count_of(static_cast<uint64_t>(all), "block") + " changed: ";
    for (size_t i = 0; i < blocks.runs.size() && i < run_limit; i++) {
        const auto [first, last] = blocks.runs[i];
        text += (i > 0 ? ", " : "") + std::to_string(first) +
                (last > first ? " to " + std::to_string(last) : "");
    }
    if (blocks.runs.size() > run_limit)
        text += " and " + std::to_string(blocks.runs.size() - run_limit) + " more runs";
    return text;
}

std::string field_text(const changed_field &field)
{
    const auto shown = [](const std::string &value) { return value.empty() ? "none" : value; };
    return field.field + " " + shown(field.before) + ", now " + shown(field.after);
}

std::string part_text(const changed_part &part)
{
    std::string text =
        "part " + std::to_string(part.before ? *part.before : *part.after) + " (" + part.type + ")";
    if (part.before && part.after && *part.before != *part.after)
        text += ", now part " + std::to_string(*part.after);
    text += ": ";
    if (!part.before || !part.after)
        return text + (part.before ? "gone" : "new") + ", " +
               count_of(static_cast<uint64_t>(part.blocks.changed), "block") + "\n";
    if (part.same())
        return text + "the same\n";
    for (const changed_field &field : part.fields)
        text += field_text(field) + "; ";
    return text + blocks_text(part.blocks) + "\n";
}

std::string writer_text(const std::optional<size_t> &part)
{
    return part ? "part " + std::to_string(*part) : "not written";
}

std::string device_text(const changed_device &changed)
{
    std::string text = printable(changed.before.name) + ": ";
    if (changed.same())
        text += std::string("the same, ") + result_name(changed.before) + "\n";
    else if (std::string(result_name(changed.before)) == result_name(changed.after))
        text += std::string(result_name(changed.before)) + " as before\n";
    else
        text += std::string(result_name(changed.before)) + ", now " + verdict_text(changed.after) +
                "\n";
    for (const changed_partition &each : changed.partitions) {
        text += "  " + printable(each.partition) + ": " + writer_text(each.part_before);
        if (each.part_before != each.part_after)
            text += ", now " + writer_text(each.part_after);
        text += ": " + blocks_text(each.blocks) + "\n";
    }
    return text;
}

} // namespace

std::string difference_text(const package_difference &difference, const std::string &before_name,
                            const std::string &after_name)
{
    std::string text = printable(before_name) + " and " + printable(after_name) +
                       (difference.same ? ": the same\n" : " differ\n");
    for (const changed_field &field : difference.fields)
        text += field_text(field) + "\n";
    for (const changed_part &part : difference.parts)
        text += part_text(part);
    for (const changed_device &each : difference.devices)
        text += device_text(each);
    return text;
}

} // namespace fwpkg
