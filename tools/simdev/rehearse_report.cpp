// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>

#include "tools/common/printable.h"
#include "tools/fwpkg/plan_report.h"
#include "tools/fwpkg/text.h"
#include "tools/simdev/rehearse.h"

namespace simdev {

namespace {

using table = std::vector<std::vector<std::string>>;

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

std::vector<std::string> heading(const rehearse_result &result)
{
    std::vector<std::string> row = {"device"};
    for (const rehearsed_device &device : result.devices)
        for (size_t index = row.size() - 1; index < device.plan.parts.size(); index++)
            row.push_back(std::to_string(index) + " " + device.plan.parts[index].type_name);
    row.insert(row.end(), {"result", "time"});
    if (std::ranges::any_of(result.devices, [](const auto &device) { return !!device.swept; }))
        row.emplace_back("power cuts");
    row.emplace_back("verdict");
    return row;
}

std::vector<std::string> device_row(const rehearsed_device &device, size_t columns, size_t parts)
{
    std::vector<std::string> row = {printable(device.plan.name)};
    for (size_t index = 0; index < parts; index++)
        row.emplace_back(index < device.plan.parts.size()
                             ? fwpkg::outcome_name(device.plan.parts[index].outcome)
                             : "-");
    row.push_back(device.run ? result_text(*device.run) : "-");
    row.push_back(device.run ? seconds_text(device.run->virtual_us) : "-");
    if (row.size() + 1 < columns)
        row.push_back(device.swept ? std::to_string(count_points(*device.swept).recovered) +
                                         " of " + std::to_string(device.swept->writes) + " mended"
                                   : "-");
    row.push_back(verdict(device));
    return row;
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

json device_json(const rehearsed_device &device)
{
    json parts = json::array();
    for (const fwpkg::planned_part &part : device.plan.parts)
        parts.push_back({{"place", part.place}, {"outcome", fwpkg::outcome_name(part.outcome)}});
    json troubles = json::array();
    for (const trouble &each : device.troubles)
        troubles.push_back({{"kind", name(each.kind)}, {"text", printable(each.text)}});
    const auto &run = device.run;
    json swept;
    if (device.swept)
        swept = {{"writes", device.swept->writes},
                 {"recovered", count_points(*device.swept).recovered},
                 {"mixed_but_valid", count_points(*device.swept).undetected}};
    return {{"device", printable(device.plan.name)},
            {"verdict", verdict(device)},
            {"planned", fwpkg::result_name(device.plan)},
            {"reason", printable(device.plan.reason)},
            {"expected", device.expected.empty() ? json() : json(device.expected)},
            {"result", run ? json(result_text(*run)) : json()},
            {"exit_status", run && run->exit_status ? json(*run->exit_status) : json()},
            {"blocks", run ? json(run->blocks) : json()},
            {"milliseconds", run ? json(run->virtual_us / 1000) : json()},
            {"note", printable(device.note)},
            {"parts", parts},
            {"sweep", swept},
            {"troubles", troubles}};
}

} // namespace

const char *name(trouble_kind kind)
{
    constexpr const char *names[] = {"not as planned", "not as expected", "no recovery",
                                     "not rehearsed"};
    return names[static_cast<size_t>(kind)];
}

std::string rehearsal_text(const rehearse_result &result)
{
    table rows = {heading(result)};
    size_t parts = 0;
    for (const rehearsed_device &device : result.devices)
        parts = std::max(parts, device.plan.parts.size());
    for (const rehearsed_device &device : result.devices)
        rows.push_back(device_row(device, rows.front().size(), parts));
    std::string text = fwpkg::table_text(rows);
    for (const rehearsed_device &device : result.devices) {
        const std::string device_name = printable(device.plan.name) + ": ";
        if (!device.note.empty())
            text += device_name + printable(device.note) + "\n";
        for (const trouble &each : device.troubles)
            text += device_name + name(each.kind) + ": " + printable(each.text) + "\n";
    }
    const size_t bad = count_bad(result, true) + count_bad(result, false);
    text += std::to_string(result.devices.size()) + " devices, " + std::to_string(bad) +
            " with trouble; real " + seconds_text(result.real_us);
    return text + (result.interrupted ? ", interrupted\n" : "\n");
}

json rehearsal_json(const rehearse_result &result)
{
    json devices = json::array();
    for (const rehearsed_device &device : result.devices)
        devices.push_back(device_json(device));
    return {{"format", 1},
            {"file", printable(result.package)},
            {"sha256", result.sha256},
            {"good", result.good()},
            {"interrupted", result.interrupted},
            {"real_milliseconds", result.real_us / 1000},
            {"devices", devices}};
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
