// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/measure.h"

#include <cstdio>
#include <cstring>

#include "platform/device.h"
#include "tools/common/printable.h"
#include "tools/fwpkg/text.h"
#include "tools/image/trailer.h"
#include "tools/simdev/folder.h"

namespace simdev {

namespace {

void add_result(report &said, const run_record &record, const run_outcome &outcome)
{
    std::string text = "exit status " + std::to_string(outcome.exit_status);
    const bool touched = record.operations > 1;
    if (record.end)
        text += record.end->op == op_power_cut ? " (power cut)"
                : record.end->op == op_reset   ? " (reset by the watchdog)"
                                               : " (would hang for ever)";
    else if (outcome.signal)
        text += " (ended by signal " + std::to_string(*outcome.signal) + ", " +
                strsignal(*outcome.signal) + ")";
    if (outcome.interrupted)
        text += ", interrupted";
    if (!touched)
        text += "; the program never touched the device: is it an upgrade?";
    said.add("result", text,
             {{"exit_status", outcome.exit_status},
              {"signal", outcome.signal ? json(*outcome.signal) : json()},
              {"ended_by", record.end ? json(sim_op_names[record.end->op]) : json()},
              {"interrupted", outcome.interrupted},
              {"touched_the_device", touched}});
}

void add_stages(report &said, const run_record &record)
{
    std::string text;
    json stages = json::array();
    for (const stage_record &stage : record.stages) {
        text +=
            (text.empty() ? "" : ", ") +
            (stage.is_error ? "error \"" + printable(stage.name) + "\"" : printable(stage.name)) +
            " at " + seconds_text(stage.virtual_us);
        stages.push_back({{stage.is_error ? "error" : "stage", json_text(stage.name)},
                          {"virtual_us", stage.virtual_us}});
    }
    said.add("stages", text.empty() ? "none" : text, {{"stages", stages}});
}

void add_partition(report &said, const run_options &options, int number,
                   const partition_record &partition)
{
    const std::string device = partition_device(number).text;
    const image::trailer_verdict trailer =
        judge_trailer(image::file_reader(folder_path(options.folder, device.c_str())));
    std::string text = std::to_string(partition.bytes) + " bytes in " +
                       std::to_string(partition.writes) + " writes";
    if (partition.failed > 0)
        text += " (" + std::to_string(partition.failed) + " failed)";
    text += "; ";
    if (trailer.state != image::trailer_state::none)
        text += "crc " + fwpkg::hex_word(trailer.crc) + " over " + std::to_string(trailer.length) +
                " bytes: ";
    text += name(trailer.state);
    said.add(device, text,
             {{"partitions",
               {{std::to_string(number),
                 {{"writes", partition.writes},
                  {"bytes", partition.bytes},
                  {"failed", partition.failed},
                  {"crc", fwpkg::hex_word(trailer.crc)},
                  {"length", trailer.length},
                  {"trailer", name(trailer.state)}}}}}});
}

/// What the program's reading back found, which changes no exit status.
void add_differences(report &said, const run_options &options)
{
    json lines = json::array();
    std::string text;
    for (const std::string &line : stderr_lines(options)) {
        const bool block = line.starts_with("block #") || line.starts_with("last block #");
        if (!block || !line.ends_with(" differ"))
            continue;
        lines.push_back(json_text(line));
        text += (text.empty() ? "" : "\n") + printable(line);
    }
    if (!text.empty())
        said.add("read back", text, {{"differences", lines}});
}

void add_watchdog(report &said, const run_record &record)
{
    std::string text = std::to_string(record.kicks) + " kicks";
    if (record.kicks_refused > 0)
        text += ", " + std::to_string(record.kicks_refused) + " refused";
    if (record.kicks_without_line > 0)
        text += ", " + std::to_string(record.kicks_without_line) +
                " without a line, which feed nothing";
    if (record.first_kick_us)
        text += ", the first after " + seconds_text(*record.first_kick_us);
    text += "\nlongest time without one " + seconds_text(record.longest.sum()) + ": " +
            printable(record.longest_phases) + "\n" + pad("phase", 22) + pad("kicks", 8) +
            pad("sleeps and waits", 18) + pad("work here", 12) + "sum";
    const auto times = [](const unfed_time &time) {
        return json{{"virtual_us", time.virtual_us}, {"work_us", time.work_us}};
    };
    json phases = json::array();
    for (const phase_record &phase : record.phases) {
        text += "\n" + pad(printable(phase.name), 22) + pad(std::to_string(phase.kicks), 8) +
                pad(seconds_text(phase.longest.virtual_us), 18) +
                pad(seconds_text(phase.longest.work_us), 12) + seconds_text(phase.longest.sum());
        phases.push_back({{"phase", json_text(phase.name)},
                          {"kicks", phase.kicks},
                          {"longest", times(phase.longest)}});
    }
    said.add("watchdog", text,
             {{"watchdog",
               {{"kicks", record.kicks},
                {"refused", record.kicks_refused},
                {"without_line", record.kicks_without_line},
                {"first_virtual_us", record.first_kick_us ? json(*record.first_kick_us) : json()},
                {"longest", times(record.longest)},
                {"longest_phases", json_text(record.longest_phases)},
                {"phases", phases}}}});
}

void add_script(report &said, const std::optional<sim_operation> &script)
{
    std::string text = "not run";
    json status;
    if (script && script->result == sim_absent) {
        text = "run, does not end";
    } else if (script && script->error != 0) {
        text = std::string("not there (") + strerrorname_np(script->error) + ")";
    } else if (script) {
        text = "run, exit status " + std::to_string(script->result);
        status = script->result;
    }
    said.add("script", text, {{"script", status}});
}

/// Those that never came to pass as well: the run was shorter than the fault supposes.
void add_faults(report &said, const run_record &record, const run_options &options)
{
    said.begin("faults");
    for (size_t index = 0; index < options.faults.size(); index++) {
        const std::string &fault = options.faults[index];
        if (fault.starts_with("closed:"))
            continue; // from the start on, in no operation
        const auto found = record.faults.find(static_cast<int>(index));
        const int64_t count = found == record.faults.end() ? 0 : found->second;
        said.add("fault",
                 fault + (count == 0 ? " never came to pass"
                                     : " in " + std::to_string(count) + " operations"),
                 {{"faults", {{fault, count}}}});
    }
}

void add_datagrams(report &said, const run_record &record)
{
    std::string text;
    json all;
    for (size_t index = 0; index < record.datagrams.size(); index++) {
        const auto &datagrams = record.datagrams.at(index);
        text += (index == 0 ? "" : ", ") + std::to_string(datagrams.size()) + " to " +
                status_receivers[index];
        json &list = all[status_receivers[index]] = json::array();
        for (const sim_operation &datagram : datagrams)
            list.push_back({{"text", json_text(datagram.text_view())},
                            {"virtual_us", datagram.virtual_us},
                            {"real_us", datagram.real_us}});
    }
    said.add("datagrams", text, {{"datagrams", all}});
}

void add_duration(report &said, const run_record &record, const run_options &options,
                  const run_outcome &outcome)
{
    std::string text =
        "virtual " + seconds_text(record.virtual_us) + ", real " + seconds_text(outcome.real_us);
    json fields = {{"virtual_us", record.virtual_us},
                   {"real_us", outcome.real_us},
                   {"operations", record.operations}};
    if (!options.fast && record.virtual_us > 0) {
        const double percent = 100.0 * static_cast<double>(outcome.real_us - record.virtual_us) /
                               static_cast<double>(record.virtual_us);
        char beyond[64];
        snprintf(beyond, sizeof beyond, " (%.2f %% beyond it)", percent);
        text += beyond;
        fields["overhead_percent"] = percent;
    }
    said.add("duration", text + ", " + std::to_string(record.operations) + " operations", fields);
}

void add_last_words(report &said, const run_options &options, const run_outcome &outcome)
{
    constexpr size_t most = 5;
    if (!is_stderr_kept(options) || outcome.exit_status == 0)
        return;
    std::vector<std::string> lines = stderr_lines(options);
    if (lines.size() > most)
        lines.erase(lines.begin(), lines.end() - most);
    std::string text = "at last (all of it is in " + stderr_path(options).string() + "):";
    json list = json::array();
    for (const std::string &line : lines) {
        text += "\n| " + printable(line);
        list.push_back(json_text(line));
    }
    said.add("said", text, {{"last_lines", list}});
}

} // namespace

report report_run(const run_record &record, const run_options &options, const run_outcome &outcome)
{
    report said;
    add_result(said, record, outcome);
    add_stages(said, record);
    said.begin("partitions");
    for (const auto &[number, partition] : record.partitions)
        add_partition(said, options, number, partition);
    add_differences(said, options);
    add_watchdog(said, record);
    add_script(said, record.script);
    add_faults(said, record, options);
    add_datagrams(said, record);
    add_duration(said, record, options, outcome);
    add_last_words(said, options, outcome);
    return said;
}

} // namespace simdev
