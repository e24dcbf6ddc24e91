// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/plan_report.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "flash/trailer.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

std::string seconds_text(int64_t milliseconds)
{
    char text[32];
    snprintf(text, sizeof text, "%.2f s", static_cast<double>(milliseconds) / 1000);
    return text;
}

std::string comparison_text(const planned_comparison &comparison, const char *who)
{
    const std::string actual =
        comparison.actual ? "\"" + printable(*comparison.actual) + "\"" : std::string("nothing");
    std::string result = "    " + comparison.text + "  " + who + " has " + actual + ": " +
                         (comparison.holds ? "holds" : "does not hold") + "\n";
    for (const std::string &warning : comparison.warnings)
        result += "      (" + warning + ")\n";
    return result;
}

std::string part_text(const planned_part &part)
{
    std::string result = "  " + part.place + ": " + outcome_name(part.outcome);
    if (part.outcome == part_outcome::written)
        result += " to " + part.partition + ", " +
                  count_of(static_cast<uint64_t>(part.bytes), "byte") + " in " +
                  count_of(static_cast<uint64_t>(part.blocks), "block") + ", " +
                  seconds_text(part.milliseconds);
    if (!part.reason.empty())
        result += ": " + part.reason;
    result +=
        "\n    " + printable(part.partition) + " " +
        (part.partition_size ? "has " + count_of(*part.partition_size, "byte") : "is not there");
    if (part.partition_size && part.outcome == part_outcome::written)
        result += ", " + std::to_string(room_left(part)) + " left beside data and trailer";
    result += "\n";
    for (const planned_comparison &comparison : part.conditions)
        result += comparison_text(comparison, "the device");
    if (part.requirement_text) {
        result += "    requirement \"" + printable(*part.requirement_text) + "\"\n";
        for (const planned_comparison &comparison : part.requirement)
            result += comparison_text(comparison, "the part");
    }
    return result;
}

} // namespace

const char *result_name(const device_plan &plan)
{
    if (plan.endless)
        return "endless";
    return plan.exit_status == 0 ? "upgraded" : plan.exit_status == 1 ? "refused" : "failed";
}

std::string verdict_text(const device_plan &plan)
{
    if (plan.endless)
        return "writing would not end: " + plan.reason;
    if (plan.exit_status == 1)
        return "package refused (exit status 1): " + plan.reason;
    if (plan.exit_status == 2)
        return "upgrade fails (exit status 2): " + plan.reason;
    const auto written =
        std::ranges::count(plan.parts, part_outcome::written, &planned_part::outcome);
    return "upgraded (exit status 0): " + count_of(static_cast<uint64_t>(written), "part") +
           " written, " + count_of(static_cast<uint64_t>(plan.blocks), "block") + ", " +
           seconds_text(plan.milliseconds);
}

const char *outcome_name(part_outcome outcome)
{
    constexpr std::array names = {"written", "empty", "dropped", "refused", "not written"};
    return names.at(static_cast<size_t>(outcome));
}

std::string plan_text(const device_plan &plan)
{
    std::string result = printable(plan.name) + ": " + verdict_text(plan) + "\n";
    for (const planned_part &part : plan.parts)
        result += part_text(part);
    return result;
}

std::string plan_summary(const std::vector<device_plan> &plans)
{
    std::vector<std::vector<std::string>> rows{{"device", "result", "time"}};
    for (const device_plan &plan : plans) {
        if (rows[0].size() == 3)
            for (const planned_part &part : plan.parts)
                rows[0].push_back(part.type_name);
        rows.push_back({printable(plan.name), result_name(plan),
                        plan.exit_status == 0 ? seconds_text(plan.milliseconds) : "-"});
        for (const planned_part &part : plan.parts)
            rows.back().emplace_back(outcome_name(part.outcome));
    }
    return table_text(rows);
}

} // namespace fwpkg
