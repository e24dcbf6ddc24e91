// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <sstream>

#include "platform/device.h"
#include "tools/simdev/summary.h"
#include "tools/simdev/sweep.h"

namespace simdev {

namespace {

const char *content_name(content_state state)
{
    switch (state) {
    case content_state::old_content:
        return "old";
    case content_state::new_content:
        return "new";
    case content_state::mixed:
        break;
    }
    return "mixed";
}

bool is_deceptive(const partition_state &state)
{
    return state.content == content_state::mixed && state.consistent;
}

bool any(const cut_point &point, bool (*holds)(const partition_state &))
{
    return std::any_of(point.partitions.begin(), point.partitions.end(),
                       [holds](const auto &entry) { return holds(entry.second); });
}

std::string state_text(const partition_state &state)
{
    std::string text = content_name(state.content);
    if (state.matches && state.content == content_state::mixed)
        return text + ", TAKEN FOR WHOLE";
    if (state.matches)
        return text + ", valid";
    return text + (state.consistent ? ", TRAILER ONLY" : ", not valid");
}

std::string pad(std::string text, size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

/// One row for each range of cut points that leave the same.
std::string state_rows(const sweep_result &result)
{
    constexpr size_t width = 24;
    std::ostringstream out;
    out << pad("cut after write", 17);
    for (const int number : result.partitions)
        out << pad(partition_device(number).text, width);
    out << "next run\n";
    for (size_t first = 0; first < result.points.size();) {
        const cut_point &point = result.points[first];
        size_t last = first;
        while (last + 1 < result.points.size() &&
               result.points[last + 1].partitions == point.partitions &&
               result.points[last + 1].recovered == point.recovered &&
               result.points[last + 1].write == result.points[last].write + 1)
            last++;
        const std::string range =
            std::to_string(point.write) + " to " + std::to_string(result.points[last].write);
        out << pad(first == last ? std::to_string(point.write) : range, 17);
        for (const auto &[number, state] : point.partitions)
            out << pad(state_text(state), width);
        out << (point.recovered ? "recovers"
                                : "EXIT STATUS " + std::to_string(point.recovery_status))
            << "\n";
        first = last + 1;
    }
    return out.str();
}

} // namespace

sweep_counts count_points(const sweep_result &result)
{
    sweep_counts counts;
    for (const cut_point &point : result.points) {
        counts.recovered += point.recovered ? 1 : 0;
        counts.deceptive += any(point, is_deceptive) ? 1 : 0;
        counts.undetected +=
            any(point,
                [](const partition_state &state) { return is_deceptive(state) && state.matches; })
                ? 1
                : 0;
    }
    return counts;
}

std::string sweep_text(const sweep_result &result)
{
    const sweep_counts counts = count_points(result);
    std::ostringstream out;
    out << state_rows(result)
        << "valid: the trailer's check word and the CRC over its length are right\n"
        << "TRAILER ONLY: the check word is right, the CRC is not\n\n"
        << "cut points swept                                        " << result.points.size()
        << " of " << result.writes << "\n"
        << "recovered by the next run, byte for byte                " << counts.recovered << "\n"
        << "a mixed partition under a trailer with a right check    " << counts.deceptive << "\n"
        << "  of these, its CRC over the stated length matches too  " << counts.undetected << "\n"
        << "time                                                    "
        << seconds_text(result.real_us) << "\n";
    if (result.interrupted)
        out << "Interrupted: the rest was not tried.\n";
    return out.str();
}

nlohmann::json sweep_json(const sweep_result &result)
{
    const sweep_counts counts = count_points(result);
    nlohmann::json json = {
        {"writes", result.writes},          {"swept", result.points.size()},
        {"recovered", counts.recovered},    {"mixed_under_consistent_trailer", counts.deceptive},
        {"crc_matches", counts.undetected}, {"interrupted", result.interrupted},
        {"real_us", result.real_us},        {"points", nlohmann::json::array()},
    };
    for (const cut_point &point : result.points) {
        nlohmann::json partitions;
        for (const auto &[number, state] : point.partitions)
            partitions[std::to_string(number)] = {{"content", content_name(state.content)},
                                                  {"trailer_valid", state.consistent},
                                                  {"content_matches", state.matches}};
        json["points"].push_back({{"write", point.write},
                                  {"partitions", partitions},
                                  {"recovered", point.recovered},
                                  {"recovery_status", point.recovery_status}});
    }
    return json;
}

} // namespace simdev
