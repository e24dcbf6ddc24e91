// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/phases.h"

#include <algorithm>
#include <cstdio>

#include "platform/device.h"
#include "tools/simdev/summary.h"

namespace simdev {

namespace {

enum phase_index {
    phase_download,
    phase_script,
    phase_checks,
    phase_writing,
    phase_verifying,
    phase_end
};

/// The phase that each operation ends in.
std::vector<int> assign_phases(const std::vector<operation> &operations)
{
    std::vector<int> phases;
    int phase = phase_download;
    size_t last_flash_close = 0;
    for (const operation &operation : operations) {
        if (operation.op == "script")
            phase = phase_script;
        else if (phase == phase_script)
            phase = phase_checks;
        if (operation.text == "UPGRD_STAGE=WRITING")
            phase = phase_writing;
        else if (operation.text == "UPGRD_STAGE=VERIFYING")
            phase = phase_verifying;
        if (operation.op == "close" && operation.target.starts_with(partition_prefix))
            last_flash_close = phases.size();
        phases.push_back(phase);
    }
    // The rest before "DONE" is no longer verifying, and nothing else marks where it begins.
    if (phase == phase_verifying)
        std::fill(phases.begin() + static_cast<std::ptrdiff_t>(last_flash_close) + 1, phases.end(),
                  phase_end);
    return phases;
}

unfed_time since(const operation *from, const operation &to)
{
    if (from == nullptr)
        return {to.virtual_us, to.real_us};
    return {to.virtual_us - from->virtual_us, to.real_us - from->real_us};
}

void keep_longer(unfed_time &longest, const unfed_time &candidate)
{
    if (candidate.sum() > longest.sum())
        longest = candidate;
}

bool is_kick(const operation &operation)
{
    return operation.op == "kick" && operation.error.empty();
}

std::string row(const std::string &name, int64_t kicks, const unfed_time &time)
{
    char text[128];
    snprintf(text, sizeof text, "%-24s %6lld %18s %14s %14s\n", name.c_str(),
             static_cast<long long>(kicks), seconds_text(time.virtual_us).c_str(),
             seconds_text(time.work_us).c_str(), seconds_text(time.sum()).c_str());
    return text;
}

} // namespace

watchdog_record_of_run measure_phases(const std::vector<operation> &operations,
                                      const std::string &protocol)
{
    const std::vector<std::string> names = {
        "download (" + protocol + ")", "script", "checks", "writing", "verifying", "end"};
    watchdog_record_of_run record;
    const std::vector<int> phases = assign_phases(operations);
    const operation *fed = nullptr;  // the last kick
    const operation *mark = nullptr; // the last kick or the phase's beginning
    const operation *before = nullptr;
    int fed_phase = phase_download;
    for (size_t index = 0; index < operations.size(); index++) {
        const operation &operation = operations[index];
        if (record.phases.empty() ||
            record.phases.back().name != names.at(static_cast<size_t>(phases[index]))) {
            record.phases.push_back({names.at(static_cast<size_t>(phases[index])), 0, {}});
            mark = before;
        }
        phase_record &phase = record.phases.back();
        keep_longer(phase.longest, since(mark, operation));
        const bool kick = is_kick(operation);
        const unfed_time unfed = since(fed, operation);
        if ((kick || index + 1 == operations.size()) && unfed.sum() > record.longest.sum()) {
            record.longest = unfed;
            record.longest_phases = names.at(static_cast<size_t>(fed_phase));
            if (fed_phase != phases[index])
                record.longest_phases += " to " + names.at(static_cast<size_t>(phases[index]));
        }
        if (kick) {
            phase.kicks++;
            fed = mark = &operation;
            fed_phase = phases[index];
        }
        before = &operation;
    }
    return record;
}

std::string phases_text(const watchdog_record_of_run &record)
{
    std::string text =
        "The longest time without a kick:\n"
        "phase                     kicks   sleeps and waits      work here           sum\n";
    for (const phase_record &phase : record.phases)
        text += row(phase.name, phase.kicks, phase.longest);
    text += "over all: " + seconds_text(record.longest.sum()) + ", " + record.longest_phases + "\n";
    text += "A device takes longer for its work than this machine, and its network and its script\n"
            "may: choose a time-out well above the sums.\n";
    return text;
}

nlohmann::json phases_json(const watchdog_record_of_run &record)
{
    const auto times = [](const unfed_time &time) {
        return nlohmann::json{{"virtual_us", time.virtual_us}, {"work_us", time.work_us}};
    };
    nlohmann::json json = {{"phases", nlohmann::json::array()},
                           {"longest", times(record.longest)},
                           {"longest_phases", record.longest_phases}};
    for (const phase_record &phase : record.phases)
        json["phases"].push_back(
            {{"phase", phase.name}, {"kicks", phase.kicks}, {"longest", times(phase.longest)}});
    return json;
}

} // namespace simdev
