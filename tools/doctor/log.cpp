// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/doctor/log.h"

#include <algorithm>
#include <charconv>

namespace doctor {

namespace {

constexpr size_t text_limit = 512;     // bytes kept of a message or an argument
constexpr size_t finding_limit = 500;  // of a run: the table has fewer rows
constexpr size_t partition_limit = 10; // there are ten names
constexpr size_t block_limit = 1000;   // different blocks that are listed, of a partition

std::string keep(std::string_view text)
{
    return std::string(text.substr(0, text_limit));
}

int64_t number(std::string_view text)
{
    int64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

void add_finding(run_log &run, const message &message, uint64_t line)
{
    const auto same = std::ranges::find_if(run.findings, [&](const finding &finding) {
        return finding.row == message.row && !finding.settled;
    });
    if (same != run.findings.end()) {
        same->count++;
        same->last_line = line;
        return;
    }
    if (run.findings.size() == finding_limit)
        return;
    finding made = {message.row, 1, line, line, keep(message.text), {}, false};
    for (const std::string_view argument : message.arguments)
        made.arguments.push_back(keep(argument));
    run.findings.push_back(std::move(made));
}

/// The partition that the run has opened last, if the log has that.
partition_log *open_partition_of(run_log &run, const std::string &device)
{
    const auto found = run.partitions.find(device);
    return found == run.partitions.end() ? nullptr : &found->second;
}

void note_block(std::vector<std::string> &blocks, std::string_view block)
{
    if (blocks.size() < block_limit && std::ranges::find(blocks, block) == blocks.end())
        blocks.push_back(keep(block));
}

/// Reads a log message by message.
class reader {
public:
    explicit reader(log_file &into) : file(into) {}
    void take(const message &message, uint64_t line);

private:
    void begin(bool complete, uint64_t line);
    void take_stage(run_log &run, event what);
    void take_flash(run_log &run, const message &message);
    void take_outcome(run_log &run, const message &message);

    log_file &file;
    std::string device; // the partition opened last
};

void reader::begin(bool complete, uint64_t line)
{
    if (file.runs.size() == run_limit) {
        file.runs.pop_front();
        file.forgotten++;
    }
    file.runs.emplace_back();
    file.runs.back().first_line = line;
    file.runs.back().complete = complete;
}

/// What was said before data came explains no later failure.
void settle(run_log &run)
{
    for (finding &finding : run.findings)
        finding.settled = true;
}

/// The package is looked at, so the download is over.
void begin_check(run_log &run)
{
    if (run.reached < phase::checking && run.has_data())
        settle(run);
    run.reached = std::max(run.reached, phase::checking);
}

void finish_partition(run_log &run, const std::string &device)
{
    if (partition_log *partition = open_partition_of(run, device))
        partition->whole = true;
}

void reader::take_stage(run_log &run, event what)
{
    finish_partition(run, device);
    device.clear();
    if (what == event::download_stage) {
        run.reached = phase::downloading;
        settle(run);
    } else if (what == event::write_stage) {
        settle(run);
        run.reached = phase::writing;
        run.attempts++;
        for (auto &[name, partition] : run.partitions)
            partition = {}; // written anew
    } else {
        run.reached = what == event::verify_stage ? phase::verifying : phase::done;
    }
    run.percent.reset();
}

void reader::take_flash(run_log &run, const message &message)
{
    const std::string_view argument = message.arguments.empty() ? "" : message.arguments[0];
    if (message.row->what == event::no_partition) {
        finish_partition(run, device);
        device.clear();
        return;
    }
    if (message.row->what == event::open_partition) {
        finish_partition(run, device);
        device = keep(argument);
        if (run.partitions.size() < partition_limit || run.partitions.contains(device))
            run.partitions[device];
        if (run.reached < phase::writing) // a log that begins in the middle
            run.reached = phase::writing;
        return;
    }
    partition_log *partition = open_partition_of(run, device);
    if (partition == nullptr)
        partition = &run.partitions["a partition"];
    if (message.row->what == event::retry)
        partition->retries++;
    else if (message.row->what == event::difference)
        note_block(partition->different, argument);
    else if (message.row->what == event::unreadable)
        note_block(partition->unreadable, argument);
    else
        partition->trailer_failed = true;
}

void reader::take_outcome(run_log &run, const message &message)
{
    switch (message.row->what) {
    case event::not_started:
        run.end = outcome::not_started;
        break;
    case event::invalid_url:
        run.end = outcome::invalid_url;
        break;
    case event::download_failed:
        run.end = outcome::download_failed;
        // TFTP tells its length all the same.
        run.reached = run.has_data() ? std::min(run.reached, phase::downloading) : phase::start;
        break;
    case event::invalid_package:
        run.end = outcome::invalid_package;
        begin_check(run);
        break;
    case event::upgrade_failed:
        run.end = outcome::upgrade_failed;
        break;
    default:
        break;
    }
}

void reader::take(const message &message, uint64_t line)
{
    const event what = message.row->what;
    if (what == event::start || file.runs.empty())
        begin(what == event::start || what == event::not_started, line);
    run_log &run = file.runs.back();
    run.last_line = line;
    const auto argument = [&](size_t index) { return message.arguments.at(index); };
    switch (what) {
    case event::url:
        run.url = keep(argument(0));
        break;
    case event::percentage:
        run.percent = number(argument(0));
        break;
    case event::length:
        run.brought = number(argument(0));
        run.reached = std::max(run.reached, phase::downloaded);
        break;
    case event::redirect:
        run.redirects++;
        break;
    case event::package:
        begin_check(run);
        break;
    case event::download_stage:
    case event::write_stage:
    case event::verify_stage:
        take_stage(run, what);
        break;
    case event::done_stage:
        take_stage(run, what);
        run.end = outcome::done;
        break;
    case event::open_partition:
    case event::no_partition:
    case event::retry:
    case event::difference:
    case event::unreadable:
    case event::no_trailer:
        take_flash(run, message);
        break;
    case event::logged_end:
        run.exit_status = number(argument(0));
        run.seconds = number(argument(1));
        break;
    case event::logged_network:
        run.network_started = true;
        break;
    default:
        take_outcome(run, message);
    }
    if (message.row->weight == weight_trace)
        return;
    run.last = message.row;
    add_finding(run, message, line);
}

} // namespace

void each_line(std::istream &in, const std::function<void(std::string_view line, bool cut)> &take)
{
    std::string line;
    std::string piece(64 * 1024, '\0');
    while (in) {
        in.read(piece.data(), static_cast<std::streamsize>(piece.size()));
        std::string_view rest(piece.data(), static_cast<size_t>(in.gcount()));
        while (!rest.empty()) {
            const size_t end = rest.find('\n');
            line += rest.substr(0, end);
            rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
            while (line.size() > line_limit) {
                take(std::string_view(line).substr(0, line_limit), true);
                line.erase(0, line_limit);
            }
            if (end == std::string_view::npos)
                break;
            if (line.ends_with('\r'))
                line.pop_back();
            take(line, false);
            line.clear();
        }
    }
    if (!line.empty())
        take(line, false);
}

log_file read_log(std::istream &in)
{
    log_file file;
    reader reader(file);
    bool cut = false;
    each_line(in, [&](std::string_view line, bool goes_on) {
        if (!cut)
            file.lines++;
        cut = goes_on;
        for (const message &message : find_messages(line))
            reader.take(message, file.lines);
    });
    return file;
}

} // namespace doctor
