// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/summary.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <sys/mman.h>

#include "flash/crc32.h"
#include "flash/trailer.h"
#include "platform/device.h"
#include "tools/common/files.h"
#include "tools/common/printable.h"
#include "tools/simdev/core/sim.h"
#include "tools/simdev/failure.h"
#include "tools/simdev/folder.h"

namespace simdev {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view flash_prefix = partition_prefix;
constexpr std::string_view stage_prefix = status_stage;
constexpr std::string_view error_prefix = status_error;

void add_kick(run_summary &summary, const operation &operation)
{
    if (!operation.error.empty()) {
        summary.refused_kicks++;
        return;
    }
    const gap since = {operation.virtual_us - summary.last_kick_virtual_us,
                       operation.real_us - summary.last_kick_real_us};
    if (summary.kicks++ == 0)
        summary.first_kick = since;
    else if (since.virtual_us > summary.longest_gap.virtual_us ||
             (since.virtual_us == summary.longest_gap.virtual_us &&
              since.real_us > summary.longest_gap.real_us))
        summary.longest_gap = since;
    summary.last_kick_virtual_us = operation.virtual_us;
    summary.last_kick_real_us = operation.real_us;
}

// Each text goes to two receivers; the first is enough to know it.
void add_status(run_summary &summary, const operation &operation)
{
    const bool first = operation.target == status_receivers[0];
    if (operation.error.empty())
        summary.received.at(first ? 0 : 1).push_back(operation);
    if (!first)
        return;
    for (const std::string_view prefix : {stage_prefix, error_prefix})
        if (operation.text.starts_with(prefix))
            summary.stages.push_back({operation.text.substr(prefix.size()), prefix == error_prefix,
                                      operation.virtual_us});
}

std::string how_it_ended(const run_summary &summary, const run_outcome &outcome)
{
    std::string text = "exit status " + std::to_string(outcome.exit_status);
    if (summary.end)
        return text + (summary.end->op == "power-cut" ? " (power cut)"
                       : summary.end->op == "reset"   ? " (reset by the watchdog)"
                                                      : " (would hang for ever)");
    if (outcome.signal)
        return text + " (ended by signal " + std::to_string(*outcome.signal) + ", " +
               strsignal(*outcome.signal) + ")";
    return text;
}

std::string script_text(const std::optional<operation> &script)
{
    if (!script)
        return "not run";
    if (!script->error.empty())
        return "not there (" + script->error + ")";
    return "run, exit status " + std::to_string(script->result);
}

std::string trailer_text(const trailer_state &trailer)
{
    char text[96];
    if (!trailer.consistent)
        return "no valid trailer";
    snprintf(text, sizeof text, "crc %08x over %u bytes, trailer valid, content %s",
             static_cast<unsigned>(trailer.crc), static_cast<unsigned>(trailer.length),
             trailer.matches ? "matches" : "DOES NOT MATCH");
    return text;
}

// Mapped, since a partition may be larger than the memory.
trailer_state trailer_of(const run_options &options, int number)
{
    const fs::path path = options.folder / "dev" / ("fla" + std::to_string(number));
    const descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const size_t size = fs::file_size(path);
    if (size == 0)
        return judge_trailer({}); // nothing can be mapped
    void *content = mmap(nullptr, size, PROT_READ, MAP_SHARED, file.get(), 0);
    if (content == MAP_FAILED)
        throw failure(path.string() + ": cannot be mapped: " + strerror(errno));
    const trailer_state state = judge_trailer({static_cast<const char *>(content), size});
    munmap(content, size);
    return state;
}

nlohmann::json datagrams_json(const std::vector<operation> &received)
{
    nlohmann::json json = nlohmann::json::array();
    for (const operation &datagram : received)
        json.push_back({{"text", datagram.text},
                        {"virtual_us", datagram.virtual_us},
                        {"real_us", datagram.real_us}});
    return json;
}

/// Real time beyond the virtual time, in percent of it.
std::optional<double> overhead_percent(const run_summary &summary, const run_options &options,
                                       const run_outcome &outcome)
{
    if (options.fast || summary.virtual_us == 0)
        return {};
    return 100.0 * static_cast<double>(outcome.real_us - summary.virtual_us) /
           static_cast<double>(summary.virtual_us);
}

std::string last_lines(const fs::path &file, int count)
{
    const std::string text = read_text(file);
    size_t start = text.size();
    for (; count >= 0 && start > 0; count--)
        start = text.rfind('\n', start - 1) == std::string::npos ? 0 : text.rfind('\n', start - 1);
    std::ostringstream indented;
    std::istringstream lines(text.substr(start));
    for (std::string line; std::getline(lines, line);)
        if (!line.empty())
            indented << "  | " << printable(line) << "\n";
    return indented.str();
}

} // namespace

void add_operation(run_summary &summary, const operation &operation)
{
    summary.operations = operation.n;
    summary.virtual_us = operation.virtual_us;
    if (!operation.fault.empty())
        summary.faults[operation.fault]++;
    if (operation.op == "kick") {
        add_kick(summary, operation);
    } else if (operation.op == "datagram") {
        add_status(summary, operation);
    } else if (operation.op == "write" && operation.target.starts_with(flash_prefix)) {
        partition_record &partition = summary.partitions[operation.target.back() - '0'];
        partition.writes++;
        partition.failed += operation.error.empty() ? 0 : 1;
        partition.bytes += operation.error.empty() ? operation.result : 0;
    } else if (operation.op == "script") {
        summary.script = operation;
    } else if (operation.op == "power-cut" || operation.op == "reset" || operation.op == "hang") {
        summary.end = operation;
    }
}

trailer_state judge_trailer(std::string_view content)
{
    trailer_state state;
    partition_trailer trailer;
    if (content.size() < sizeof trailer)
        return state;
    memcpy(&trailer, content.data() + content.size() - sizeof trailer, sizeof trailer);
    state.crc = trailer.crc;
    state.length = trailer.length;
    state.consistent = trailer_is_consistent(trailer);
    state.matches =
        state.consistent && trailer.length <= content.size() &&
        crc32(0, reinterpret_cast<const uint8_t *>(content.data()), trailer.length) == trailer.crc;
    return state;
}

std::string seconds_text(int64_t microseconds)
{
    char text[32];
    snprintf(text, sizeof text, "%.3f s", static_cast<double>(microseconds) / 1e6);
    return text;
}

std::string report_text(const run_summary &summary, const run_options &options,
                        const run_outcome &outcome)
{
    std::ostringstream out;
    out << "result      " << how_it_ended(summary, outcome) << "\n";
    out << "stages     ";
    for (const stage_record &stage : summary.stages)
        out << (stage.is_error ? " error \"" + stage.name + "\"" : " " + stage.name) << " at "
            << seconds_text(stage.virtual_us) << (&stage == &summary.stages.back() ? "" : ",");
    out << (summary.stages.empty() ? " none\n" : "\n");
    for (const auto &[number, partition] : summary.partitions) {
        out << flash_prefix << number << "   " << partition.bytes << " bytes in "
            << partition.writes << " writes";
        if (partition.failed > 0)
            out << " (" << partition.failed << " failed)";
        out << "; " << trailer_text(trailer_of(options, number)) << "\n";
    }
    out << "watchdog    " << summary.kicks << " kicks";
    if (summary.refused_kicks > 0)
        out << ", " << summary.refused_kicks << " refused";
    if (summary.kicks > 0)
        out << ", the first after " << seconds_text(summary.first_kick.virtual_us)
            << ", the longest time between two " << seconds_text(summary.longest_gap.virtual_us)
            << " (real " << seconds_text(summary.longest_gap.real_us) << ")";
    out << "\nscript      " << script_text(summary.script) << "\n";
    for (const auto &[name, count] : summary.faults)
        out << "fault       " << name << " in " << count << " operations\n";
    out << "duration    virtual " << seconds_text(summary.virtual_us) << ", real "
        << seconds_text(outcome.real_us);
    if (const auto percent = overhead_percent(summary, options, outcome)) {
        char text[64];
        snprintf(text, sizeof text, " (%.2f %% beyond it)", *percent);
        out << text;
    }
    out << "\n";
    if (options.stderr_file != "-" && outcome.exit_status != 0)
        out << "It said at last (all of it is in " << stderr_path(options).string() << "):\n"
            << last_lines(stderr_path(options), 5);
    return out.str();
}

nlohmann::json report_json(const run_summary &summary, const run_options &options,
                           const run_outcome &outcome)
{
    nlohmann::json json;
    json["exit_status"] = outcome.exit_status;
    json["signal"] = outcome.signal ? nlohmann::json(*outcome.signal) : nlohmann::json();
    json["ended_by"] = summary.end ? nlohmann::json(summary.end->op) : nlohmann::json();
    json["stages"] = nlohmann::json::array();
    for (const stage_record &stage : summary.stages)
        json["stages"].push_back(
            {{stage.is_error ? "error" : "stage", stage.name}, {"virtual_us", stage.virtual_us}});
    json["partitions"] = nlohmann::json::object();
    for (const auto &[number, partition] : summary.partitions) {
        const trailer_state trailer = trailer_of(options, number);
        json["partitions"][std::to_string(number)] = {
            {"writes", partition.writes},         {"bytes", partition.bytes},
            {"failed", partition.failed},         {"crc", trailer.crc},
            {"length", trailer.length},           {"trailer_valid", trailer.consistent},
            {"content_matches", trailer.matches},
        };
    }
    json["kicks"] = {{"accepted", summary.kicks},
                     {"refused", summary.refused_kicks},
                     {"first_virtual_us", summary.first_kick.virtual_us},
                     {"longest_gap_virtual_us", summary.longest_gap.virtual_us},
                     {"longest_gap_real_us", summary.longest_gap.real_us}};
    json["script"] = summary.script && summary.script->error.empty()
                         ? nlohmann::json(summary.script->result)
                         : nlohmann::json();
    json["faults"] = summary.faults;
    json["datagrams"] = {{status_receivers[0], datagrams_json(summary.received[0])},
                         {status_receivers[1], datagrams_json(summary.received[1])}};
    json["operations"] = summary.operations;
    json["virtual_us"] = summary.virtual_us;
    json["real_us"] = outcome.real_us;
    if (const auto percent = overhead_percent(summary, options, outcome))
        json["overhead_percent"] = *percent;
    return json;
}

} // namespace simdev
