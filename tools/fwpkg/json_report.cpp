// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/json_report.h"

#include "tools/common/json.h"
#include "tools/fwpkg/part_data.h"
#include "tools/fwpkg/plan_report.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

std::string text_of(const json &document)
{
    return document.dump(2) + "\n";
}

json file_json(const summed_file &file)
{
    return {{"file", printable(file.name)}, {"size", file.size}, {"sha256", file.sha256}};
}

json feature_json(const feature &one)
{
    return {
        {"name", printable(one.name)}, {"value", printable(one.value)}, {"complete", one.complete}};
}

json part_json(const part_entry &entry, const std::optional<part_sums> &sums)
{
    const package_part &part = entry.part;
    const condition_text text = decompile_condition(entry.conditions());
    return {{"index", entry.index},
            {"type", part.type},
            {"type_name", type_name(part.type)},
            {"position", entry.position},
            {"header_size", entry.header_size},
            {"compress", part.compress},
            {"actual_size", part.actual_size},
            {"size", part.size},
            {"offset", part.offset},
            {"flags", part.flags},
            {"optional", entry.is_optional()},
            {"conditions",
             {{"bytes", hex(entry.conditions())}, {"text", text.text}, {"exact", text.exact}}},
            {"features", json::array_of(list_features(entry.features()), feature_json)},
            {"crc32", sums ? json(hex_word(sums->crc32)) : json()},
            {"sha256", sums ? json(sums->sha256) : json()}};
}

/// Appends the members that say what is in the package.
void add_package(json &to, const package_file &file)
{
    to["version"] = file.record.version;
    to["encryption"] = file.record.encryp;
    to["header_size"] = file.record.size;
    to["size_right"] = file.length_right;
    to["content_identifier"] = content_identifier(file);
    const bool digested = file.stage >= read_stage::deciphered && file.length_right;
    to["digest_right"] = digested ? json(file.digest_right) : json();
    const auto sums = sum_parts(file);
    to["parts"] = json::array();
    for (size_t i = 0; i < file.parts.size(); i++)
        to["parts"].push_back(part_json(file.parts[i], sums[i]));
}

json finding_json(const finding &one)
{
    json numbers = json::object();
    for (const auto &[name, number] : one.numbers)
        numbers[name] = number;
    return {{"severity", one.level == severity::error ? "error" : "warning"},
            {"place", one.place},
            {"message", one.message},
            {"numbers", numbers}};
}

json comparison_json(const planned_comparison &comparison)
{
    return {{"text", comparison.text},
            {"actual", comparison.actual ? json(printable(*comparison.actual)) : json()},
            {"holds", comparison.holds},
            {"warnings", comparison.warnings}};
}

json planned_part_json(const planned_part &part)
{
    return {{"place", part.place},
            {"outcome", outcome_name(part.outcome)},
            {"reason", part.reason},
            {"conditions", json::array_of(part.conditions, comparison_json)},
            {"requirement_text",
             part.requirement_text ? json(printable(*part.requirement_text)) : json()},
            {"requirement", json::array_of(part.requirement, comparison_json)},
            {"partition", printable(part.partition)},
            {"partition_size", part.partition_size},
            {"room_left", part.partition_size ? json(room_left(part)) : json()},
            {"bytes", part.bytes},
            {"blocks", part.blocks},
            {"milliseconds", part.milliseconds}};
}

json device_json(const device_plan &plan)
{
    return {{"device", printable(plan.name)},
            {"result", result_name(plan)},
            {"exit_status", plan.endless ? json() : json(plan.exit_status)},
            {"reason", plan.reason},
            {"blocks", plan.blocks},
            {"milliseconds", plan.milliseconds},
            {"parts", json::array_of(plan.parts, planned_part_json)}};
}

json field_json(const changed_field &one)
{
    return {{"field", one.field}, {"before", one.before}, {"after", one.after}};
}

json blocks_json(const changed_blocks &blocks)
{
    return {{"before", blocks.before},
            {"after", blocks.after},
            {"changed", blocks.changed},
            {"runs", json::array_of(blocks.runs, [](const auto &run) {
                 return json::array({run.first, run.second});
             })}};
}

json changed_part_json(const changed_part &part)
{
    return {{"before", part.before},
            {"after", part.after},
            {"type_name", part.type},
            {"same", part.same()},
            {"fields", json::array_of(part.fields, field_json)},
            {"blocks", blocks_json(part.blocks)}};
}

json changed_partition_json(const changed_partition &one)
{
    return {{"partition", printable(one.partition)},
            {"part_before", one.part_before},
            {"part_after", one.part_after},
            {"blocks", blocks_json(one.blocks)}};
}

json changed_device_json(const changed_device &one)
{
    return {{"device", printable(one.before.name)},
            {"same", one.same()},
            {"result_before", result_name(one.before)},
            {"result_after", result_name(one.after)},
            {"reason_after", one.after.reason},
            {"partitions", json::array_of(one.partitions, changed_partition_json)}};
}

json explained_json(const explained_item &one)
{
    const bool comparison = one.item.comparison;
    return {{"position", one.item.position},
            {"text", item_text(one.item)},
            {"numeric", is_numeric(one.item)},
            {"actual", one.actual ? json(printable(*one.actual)) : json()},
            {"holds", comparison ? json(one.holds) : json()}};
}

} // namespace

std::string show_json(const package_file &file, const summed_file &summed)
{
    json result{{"format", json_format}};
    result.merge(file_json(summed));
    result["problem"] = file.problem.empty() ? json() : json(file.problem);
    if (file.stage != read_stage::nothing)
        add_package(result, file);
    return text_of(result);
}

std::string make_json(const package_file &file, const summed_file &output,
                      const std::vector<summed_file> &inputs, const std::vector<finding> &found)
{
    json result{{"format", json_format}};
    result.merge(file_json(output));
    result["inputs"] = json::array_of(inputs, file_json);
    add_package(result, file);
    result["findings"] = json::array_of(found, finding_json);
    return text_of(result);
}

std::string check_json(const std::string &name, const std::vector<finding> &found, bool sound)
{
    return text_of({{"format", json_format},
                    {"file", printable(name)},
                    {"sound", sound},
                    {"findings", json::array_of(found, finding_json)}});
}

std::string plan_json(const std::string &name, const std::vector<device_plan> &plans)
{
    return text_of({{"format", json_format},
                    {"file", printable(name)},
                    {"devices", json::array_of(plans, device_json)}});
}

std::string diff_json(const package_difference &difference, const std::string &before_name,
                      const std::string &after_name)
{
    return text_of({{"format", json_format},
                    {"before", printable(before_name)},
                    {"after", printable(after_name)},
                    {"same", difference.same},
                    {"fields", json::array_of(difference.fields, field_json)},
                    {"parts", json::array_of(difference.parts, changed_part_json)},
                    {"devices", json::array_of(difference.devices, changed_device_json)}});
}

std::string condition_json(const std::string &text, const condition_report &report)
{
    return text_of({{"format", json_format},
                    {"text", printable(text)},
                    {"bytes", hex(report.code)},
                    {"items", json::array_of(report.items, explained_json)},
                    {"holds", report.holds},
                    {"warnings", report.warnings}});
}

std::string extract_json(const std::string &name, const std::vector<summed_file> &files)
{
    return text_of({{"format", json_format},
                    {"file", printable(name)},
                    {"files", json::array_of(files, file_json)}});
}

} // namespace fwpkg
