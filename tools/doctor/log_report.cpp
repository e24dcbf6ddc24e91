// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/doctor/log_report.h"

#include <algorithm>
#include <array>

#include "tools/common/printable.h"
#include "tools/doctor/diagnosis.h"
#include "tools/doctor/redact.h"

namespace doctor {

namespace {

constexpr size_t shown_limit = 200; // bytes of a line that is shown

constexpr std::array phase_names = {"start",   "downloading", "downloaded", "checking the package",
                                    "writing", "verifying",   "done"};

struct outcome_face {
    const char *name;
    int status; ///< the exit status that goes with it; -1 where the log has no end
};

constexpr outcome_face outcome_faces[] = {
    {"the log ends before the run", -1},
    {"not started", 1},
    {"invalid URL", 1},
    {"download failed", 1},
    {"package refused", 1},
    {"upgrade failed", 2},
    {"upgraded", 0},
};

constexpr const char *network_texts[] = {
    "the network runs",
    "the network was stopped: start it again",
    "the network may be stopped: the log does not tell",
    "the network was stopped and started again",
};
constexpr const char *network_names[] = {"runs", "stopped", "unknown", "started again"};

std::string show(std::string_view text)
{
    const std::string clean = without_secrets(text);
    return clean.size() <= shown_limit ? printable(clean)
                                       : printable(clean.substr(0, shown_limit)) + "...";
}

const outcome_face &face_of(const run_log &run)
{
    return outcome_faces[static_cast<size_t>(run.end)];
}

std::string reached_text(const run_log &run)
{
    std::string text = phase_names[static_cast<size_t>(run.reached)];
    const bool has_percentage =
        run.percent && run.reached != phase::checking && run.reached != phase::done;
    if (has_percentage)
        text += ", " + std::to_string(*run.percent) + " %";
    else if (run.brought && run.reached <= phase::checking)
        text += ", " + std::to_string(*run.brought) + " bytes";
    return text;
}

std::string end_text(const run_log &run)
{
    const outcome_face &face = face_of(run);
    std::string text = face.name;
    if (run.exit_status)
        text += ", exit status " + std::to_string(*run.exit_status) + " after " +
                std::to_string(run.seconds) + " s";
    else if (face.status >= 0)
        text += ", exit status " + std::to_string(face.status);
    return text;
}

std::string joined(const std::vector<std::string> &blocks)
{
    std::string text;
    for (const std::string &block : blocks)
        text += (text.empty() ? "" : ", ") + block;
    return text;
}

/// One sentence a partition.
std::string partition_text(const std::string &device, const partition_log &partition)
{
    std::string text = show(device) + (partition.whole ? " was written to its end"
                                                       : " may be written in part: mixed");
    if (partition.retries > 0)
        text += "; " + std::to_string(partition.retries) + " failed writes";
    if (!partition.different.empty())
        text += "; reads back different in block " + joined(partition.different);
    if (!partition.unreadable.empty())
        text += "; cannot be read back in block " + joined(partition.unreadable);
    if (partition.trailer_failed)
        text += "; without its checksum";
    return text;
}

/// What the verdict was drawn from, in the order of the lines: the cause's finding, the outcome,
/// and what else is worth knowing.
std::vector<const finding *> evidence(const run_log &run, const diagnosis &found)
{
    std::vector<const finding *> lines;
    for (const finding &each : run.findings)
        if (&each == found.from || each.row->weight == weight_notice ||
            each.row->weight == weight_outcome)
            lines.push_back(&each);
    if (lines.empty() && !run.findings.empty())
        lines.push_back(&run.findings.back());
    return lines;
}

std::string evidence_text(const finding &said)
{
    std::string text = "line " + std::to_string(said.first_line) + ": " + show(said.text);
    if (said.count > 1)
        text += " (" + std::to_string(said.count) + " times, last in line " +
                std::to_string(said.last_line) + ")";
    return text;
}

/// One entry of the report; further lines of it stand below the first.
void add(std::string &text, const char *name, const std::vector<std::string> &lines)
{
    for (size_t index = 0; index < lines.size(); index++) {
        std::string label = index == 0 ? name : "";
        label.resize(11, ' ');
        text += "  " + label + lines[index] + "\n";
    }
}

std::string run_text(const run_log &run)
{
    const diagnosis found = diagnose(run);
    std::string text;
    add(text, "url", {run.url.empty() ? "not in the log" : show(run.url)});
    add(text, "result", {end_text(run)});
    add(text, "cause", {show(found.cause)});
    std::vector<std::string> lines;
    for (const std::string &remedy : found.remedies)
        lines.push_back(std::to_string(lines.size() + 1) + ". " + remedy);
    add(text, "remedies", lines);
    add(text, "reached", {reached_text(run)});
    if (run.attempts > 0)
        add(text, "attempts", {std::to_string(run.attempts) + " of 3 at writing"});
    lines = {network_texts[static_cast<size_t>(found.network)]};
    for (const auto &[device, partition] : run.partitions)
        lines.push_back(partition_text(device, partition));
    if (run.partitions.empty())
        lines.emplace_back(run.complete ? "no partition was written"
                                        : "this part of the log has no partition written");
    add(text, "left", lines);
    lines.clear();
    for (const finding *said : evidence(run, found))
        lines.push_back(evidence_text(*said));
    add(text, "evidence", lines);
    return text;
}

json run_json(const run_log &run)
{
    const diagnosis found = diagnose(run);
    const outcome_face &face = face_of(run);
    json partitions = json::object();
    for (const auto &[device, partition] : run.partitions)
        partitions[show(device)] = {{"whole", partition.whole},
                                    {"failed_writes", partition.retries},
                                    {"different_blocks", partition.different},
                                    {"unreadable_blocks", partition.unreadable},
                                    {"checksum_failed", partition.trailer_failed}};
    const auto evidence_json = [](const finding *said) -> json {
        return {{"line", said->first_line},
                {"last_line", said->last_line},
                {"count", said->count},
                {"text", show(said->text)},
                {"meaning", show(meaning_of(*said))}};
    };
    const json face_status = face.status >= 0 ? json(face.status) : json();
    return {{"first_line", run.first_line},
            {"last_line", run.last_line},
            {"begins_in_log", run.complete},
            {"url", run.url.empty() ? json() : json(show(run.url))},
            {"result", face.name},
            {"exit_status", run.exit_status ? json(run.exit_status) : face_status},
            {"cause", show(found.cause)},
            {"remedies", found.remedies},
            {"reached", phase_names[static_cast<size_t>(run.reached)]},
            {"percent", run.percent},
            {"attempts", run.attempts},
            {"network", network_names[static_cast<size_t>(found.network)]},
            {"partitions", partitions},
            {"evidence", json::array_of(evidence(run, found), evidence_json)}};
}

} // namespace

std::string log_text(const log_file &file)
{
    std::string text;
    if (file.forgotten > 0)
        text += std::to_string(file.forgotten) + " earlier runs are not shown\n";
    for (size_t index = 0; index < file.runs.size(); index++) {
        const run_log &run = file.runs[index];
        text += "run " + std::to_string(file.forgotten + index + 1) + " of " +
                std::to_string(file.forgotten + file.runs.size()) + ", lines " +
                std::to_string(run.first_line) + " to " + std::to_string(run.last_line) +
                (run.complete ? "" : ", its beginning is missing") + "\n" + run_text(run);
    }
    return text;
}

json log_json(const log_file &file)
{
    return {{"format", 1}, // docs/json.md
            {"lines", file.lines},
            {"runs_not_shown", file.forgotten},
            {"runs", json::array_of(file.runs, run_json)}};
}

} // namespace doctor
