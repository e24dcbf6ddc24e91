// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/sweep.h"

#include <algorithm>

namespace simdev {

namespace {

constexpr const char *content_names[] = {"old", "new", "mixed"};

const char *content_name(const partition_state &state)
{
    return content_names[static_cast<size_t>(state.content)];
}

bool is_deceptive(const partition_state &state)
{
    return state.content == content_state::mixed && state.trailer != image::trailer_state::none;
}

bool is_undetected(const partition_state &state)
{
    return is_deceptive(state) && state.trailer == image::trailer_state::valid;
}

bool any(const cut_point &point, bool (*holds)(const partition_state &))
{
    return std::ranges::any_of(point.partitions,
                               [holds](const auto &entry) { return holds(entry.second); });
}

std::string next_run(const cut_point &point)
{
    if (point.recovered)
        return "recovers";
    return (point.recovery_status == 0 ? "LEAVES ANOTHER FLASH, exit status "
                                       : "FAILS, exit status ") +
           std::to_string(point.recovery_status);
}

/// One row for each range of cut points that leave and come to the same.
std::string point_rows(const sweep_result &result)
{
    constexpr size_t width = 20;
    constexpr size_t range_width = 12;
    std::string rows = pad("after write", range_width);
    for (const int number : result.partitions)
        rows += pad("/dev/fla" + std::to_string(number), width);
    rows += "next run";
    for (size_t first = 0; first < result.points.size();) {
        const cut_point &point = result.points[first];
        size_t last = first;
        while (last + 1 < result.points.size() && result.points[last + 1].same_as(point) &&
               result.points[last + 1].write == result.points[last].write + 1)
            last++;
        std::string range = std::to_string(point.write);
        if (last != first)
            range += " to " + std::to_string(result.points[last].write);
        rows += "\n" + pad(range, range_width);
        for (const auto &[number, state] : point.partitions)
            rows += pad(std::string(content_name(state)) + ", " + name(state.trailer), width);
        rows += next_run(point);
        first = last + 1;
    }
    return rows;
}

json points_json(const sweep_result &result)
{
    json points = json::array();
    for (const cut_point &point : result.points) {
        json partitions;
        for (const auto &[number, state] : point.partitions)
            partitions[std::to_string(number)] = {{"content", content_name(state)},
                                                  {"trailer", name(state.trailer)}};
        points.push_back({{"write", point.write},
                          {"partitions", partitions},
                          {"recovered", point.recovered},
                          {"recovery_status", point.recovery_status}});
    }
    return points;
}

} // namespace

sweep_counts count_points(const sweep_result &result)
{
    sweep_counts counts;
    for (const cut_point &point : result.points) {
        counts.recovered += point.recovered ? 1 : 0;
        counts.deceptive += any(point, is_deceptive) ? 1 : 0;
        counts.undetected += any(point, is_undetected) ? 1 : 0;
    }
    return counts;
}

report report_sweep(const sweep_result &result)
{
    const sweep_counts counts = count_points(result);
    report said;
    said.add("power cut", point_rows(result), {{"points", points_json(result)}});
    said.add("swept",
             std::to_string(result.points.size()) + " of " + std::to_string(result.writes) +
                 " flash writes" + (result.interrupted ? "; interrupted: no more were tried" : ""),
             {{"swept", result.points.size()},
              {"writes", result.writes},
              {"interrupted", result.interrupted}});
    said.add("recovered", std::to_string(counts.recovered) + " by the next run, byte for byte",
             {{"recovered", counts.recovered}});
    said.add("deceptive",
             std::to_string(counts.deceptive) +
                 " with a mixed partition under a trailer with a right check word; at " +
                 std::to_string(counts.undetected) + " of these its CRC is right, too",
             {{"mixed_under_right_check_word", counts.deceptive},
              {"mixed_but_valid", counts.undetected}});
    said.add("duration", "real " + seconds_text(result.real_us), {{"real_us", result.real_us}});
    return said;
}

} // namespace simdev
