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
    for (const std::string &trap : comparison.traps)
        result += "      (" + trap + ")\n";
    return result;
}

/// Bytes of the partition that neither the data nor the trailer takes; below 0 where the trailer
/// covers data.
int64_t room_left(const planned_part &part)
{
    return static_cast<int64_t>(*part.partition_size) - part.bytes -
           static_cast<int64_t>(sizeof(partition_trailer));
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

std::string verdict(const device_plan &plan)
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

json comparisons_json(const std::vector<planned_comparison> &comparisons)
{
    json result = json::array();
    for (const planned_comparison &comparison : comparisons) {
        json traps = comparison.traps;
        result.push_back(
            {{"text", comparison.text},
             {"actual", comparison.actual ? json(printable(*comparison.actual)) : json()},
             {"holds", comparison.holds},
             {"traps", traps}});
    }
    return result;
}

json part_json(const planned_part &part)
{
    json result;
    result["place"] = part.place;
    result["outcome"] = outcome_name(part.outcome);
    result["reason"] = part.reason;
    result["conditions"] = comparisons_json(part.conditions);
    result["requirement_text"] =
        part.requirement_text ? json(printable(*part.requirement_text)) : json();
    result["requirement"] = comparisons_json(part.requirement);
    result["partition"] = printable(part.partition);
    result["partition_size"] = part.partition_size ? json(*part.partition_size) : json();
    result["room_left"] = part.partition_size ? json(room_left(part)) : json();
    result["bytes"] = part.bytes;
    result["blocks"] = part.blocks;
    result["milliseconds"] = part.milliseconds;
    return result;
}

} // namespace

const char *outcome_name(part_outcome outcome)
{
    constexpr std::array names = {"written", "empty", "dropped", "refused", "not written"};
    return names.at(static_cast<size_t>(outcome));
}

std::string plan_text(const device_plan &plan)
{
    std::string result = printable(plan.name) + ": " + verdict(plan) + "\n";
    for (const planned_part &part : plan.parts)
        result += part_text(part);
    return result;
}

json plan_json(const device_plan &plan)
{
    json result;
    result["device"] = printable(plan.name);
    result["exit_status"] = plan.endless ? json() : json(plan.exit_status);
    result["reason"] = plan.reason;
    result["blocks"] = plan.blocks;
    result["milliseconds"] = plan.milliseconds;
    result["parts"] = json::array();
    for (const planned_part &part : plan.parts)
        result["parts"].push_back(part_json(part));
    return result;
}

} // namespace fwpkg
