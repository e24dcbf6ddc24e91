// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>

#include "tools/common/printable.h"
#include "tools/fwpkg/plan_report.h"
#include "tools/fwpkg/text.h"
#include "tools/simdev/rehearse.h"

namespace simdev {

namespace {

using rows_of_cells = std::vector<std::vector<std::string>>;

/// Those that no device has anything in, below the heading.
void drop_empty_columns(rows_of_cells &table)
{
    for (size_t column = table.front().size(); column-- > 0;) {
        const auto at = static_cast<std::ptrdiff_t>(column);
        if (std::all_of(table.begin() + 1, table.end(),
                        [column](const auto &row) { return row[column] == "-"; }))
            for (auto &row : table)
                row.erase(row.begin() + at);
    }
}

/// What there is to say of a device: cells of its line in the table, lines below the table, and
/// with each of them the fields that say the same.
struct device_rows {
    std::vector<std::string> headings;
    std::vector<std::string> cells;
    std::string below;
    json fields = {{"parts", json::array()}, {"troubles", json::array()}};

    void cell(const std::string &heading, const std::string &text, const json &same)
    {
        headings.push_back(heading);
        cells.push_back(text.empty() ? "-" : text);
        fields.merge(same);
    }
    void line(const std::string &text, const json &same)
    {
        below += text.empty() ? "" : "\n" + cells.front() + ": " + text;
        fields.merge(same);
    }
};

std::string verdict(const rehearsed_device &device)
{
    if (!device.run && device.troubles.empty())
        return "interrupted";
    std::string text;
    for (const trouble &each : device.troubles)
        if (const std::string kind = name(each.kind); text.find(kind) == std::string::npos)
            text += (text.empty() ? "" : ", ") + kind;
    return text.empty() ? "good" : text;
}

/// A column for each of the `parts` that the table has; the device may have fewer.
void add_parts(device_rows &rows, const std::vector<fwpkg::planned_part> &planned,
               const std::vector<std::string> &parts)
{
    json list = json::array();
    for (size_t index = 0; index < parts.size(); index++) {
        const bool there = index < planned.size();
        const char *outcome = there ? fwpkg::outcome_name(planned[index].outcome) : "";
        if (there)
            list.push_back({{"place", planned[index].place}, {"outcome", outcome}});
        rows.cell(parts[index], outcome, {{"parts", list}});
    }
}

void add_run(device_rows &rows, const std::optional<observed_run> &run)
{
    const bool ended = run && run->exit_status;
    rows.cell("result", run ? result_text(*run) : "",
              {{"result", run ? json(result_text(*run)) : json()}});
    rows.cell("exit", ended ? std::to_string(*run->exit_status) : "",
              {{"exit_status", ended ? json(*run->exit_status) : json()}});
    rows.cell("blocks", run ? std::to_string(run->blocks) : "",
              {{"blocks", run ? json(run->blocks) : json()}});
    rows.cell("time", run ? seconds_text(run->virtual_us) : "",
              {{"milliseconds", run ? json(run->virtual_us / 1000) : json()}});
}

void add_sweep(device_rows &rows, const std::optional<sweep_result> &swept)
{
    const sweep_counts counts = swept ? count_points(*swept) : sweep_counts();
    std::string text;
    json fields;
    if (swept) {
        text =
            std::to_string(counts.recovered) + " of " + std::to_string(swept->writes) + " mended";
        if (counts.undetected > 0)
            text += ", " + std::to_string(counts.undetected) + " mixed but valid";
        fields = {{"writes", swept->writes},
                  {"recovered", counts.recovered},
                  {"mixed_but_valid", counts.undetected}};
    }
    rows.cell("power cuts", text, {{"sweep", fields}});
}

device_rows describe(const rehearsed_device &device, const std::vector<std::string> &parts)
{
    const std::string reason = printable(device.plan.reason);
    const std::string planned = fwpkg::result_name(device.plan);
    device_rows rows;
    rows.cell("device", printable(device.plan.name), {{"device", printable(device.plan.name)}});
    add_parts(rows, device.plan.parts, parts);
    rows.cell("planned", planned, {{"planned", planned}});
    rows.cell("expected", device.expected,
              {{"expected", device.expected.empty() ? json() : json(device.expected)}});
    add_run(rows, device.run);
    add_sweep(rows, device.swept);
    rows.cell("verdict", verdict(device), {{"verdict", verdict(device)}});
    rows.line(reason.empty() ? "" : planned + ": " + reason, {{"reason", reason}});
    rows.line(printable(device.note), {{"note", printable(device.note)}});
    json troubles = json::array();
    for (const trouble &each : device.troubles) {
        const std::string text = printable(each.text);
        troubles.push_back({{"kind", name(each.kind)}, {"text", text}});
        rows.line(std::string(name(each.kind)) + ": " + text, {{"troubles", troubles}});
    }
    return rows;
}

std::string xml_text(const std::string &text)
{
    std::string escaped;
    for (const char character : printable(text)) {
        const std::string_view special = "&<>\"";
        constexpr const char *entities[] = {"&amp;", "&lt;", "&gt;", "&quot;"};
        const size_t index = special.find(character);
        escaped += index == std::string_view::npos ? std::string(1, character) : entities[index];
    }
    return escaped;
}

std::string seconds_number(int64_t microseconds)
{
    const std::string text = seconds_text(microseconds);
    return text.substr(0, text.size() - 2);
}

size_t count_bad(const rehearse_result &result, bool tried)
{
    return static_cast<size_t>(
        std::ranges::count_if(result.devices, [tried](const rehearsed_device &device) {
            return !device.troubles.empty() && device.run.has_value() == tried;
        }));
}

} // namespace

const char *name(trouble_kind kind)
{
    constexpr const char *names[] = {"not as planned", "not as expected", "no recovery",
                                     "not rehearsed"};
    return names[static_cast<size_t>(kind)];
}

report report_rehearsal(const rehearse_result &result)
{
    std::vector<std::string> parts;
    for (const rehearsed_device &device : result.devices)
        for (size_t index = parts.size(); index < device.plan.parts.size(); index++)
            parts.push_back(std::to_string(index) + " " + device.plan.parts[index].type_name);
    rows_of_cells table = {{}};
    std::string below;
    json devices = json::array();
    for (const rehearsed_device &device : result.devices) {
        const device_rows rows = describe(device, parts);
        table.front() = rows.headings;
        table.push_back(rows.cells);
        below += rows.below;
        devices.push_back(rows.fields);
    }
    drop_empty_columns(table);
    std::string text = fwpkg::table_text(table);
    text.pop_back(); // the newline
    const size_t bad = count_bad(result, true) + count_bad(result, false);
    report said;
    said.add("package", printable(result.package), {{"file", printable(result.package)}});
    said.add("sha256", result.sha256, {{"sha256", result.sha256}});
    said.add("rehearsed", text + below, {{"devices", devices}});
    said.add("devices",
             std::to_string(result.devices.size()) + ", " + std::to_string(bad) + " with trouble" +
                 (result.interrupted ? ", interrupted" : ""),
             {{"good", result.good()}, {"interrupted", result.interrupted}});
    said.add("duration", "real " + seconds_text(result.real_us),
             {{"real_milliseconds", result.real_us / 1000}});
    return said;
}

std::string rehearsal_junit(const rehearse_result &result)
{
    const std::string package = xml_text(result.package);
    const auto untried = std::ranges::count_if(result.devices, [](const rehearsed_device &device) {
        return !device.run && device.troubles.empty();
    });
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuite name=\"" + package +
                       "\" tests=\"" + std::to_string(result.devices.size()) + "\" failures=\"" +
                       std::to_string(count_bad(result, true)) + "\" errors=\"" +
                       std::to_string(count_bad(result, false)) + "\" skipped=\"" +
                       std::to_string(untried) + "\" time=\"" + seconds_number(result.real_us) +
                       "\">\n";
    for (const rehearsed_device &device : result.devices) {
        text += "  <testcase classname=\"" + package + "\" name=\"" + xml_text(device.plan.name) +
                "\" time=\"" + seconds_number(device.run ? device.run->virtual_us : 0) + "\">\n";
        const std::string element = device.run ? "failure" : "error";
        if (!device.troubles.empty()) {
            text += "    <" + element + " type=\"" + name(device.troubles.front().kind) +
                    "\" message=\"" + xml_text(device.troubles.front().text) + "\">\n";
            for (const trouble &each : device.troubles)
                text += std::string(name(each.kind)) + ": " + xml_text(each.text) + "\n";
            text += "    </" + element + ">\n";
        } else if (!device.run) {
            text += "    <skipped/>\n";
        }
        text += "  </testcase>\n";
    }
    return text + "</testsuite>\n";
}

} // namespace simdev
