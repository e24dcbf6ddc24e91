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

void add_finding(run_log &run, const message &said, uint64_t line)
{
    const auto same = std::ranges::find_if(
        run.findings, [&](const finding &each) { return each.row == said.row && !each.settled; });
    if (same != run.findings.end()) {
        same->count++;
        same->last_line = line;
        return;
    }
    if (run.findings.size() == finding_limit)
        return;
    finding made = {said.row, 1, line, line, keep(said.text), {}, false};
    for (const std::string_view argument : said.arguments)
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
    void take(const message &said, uint64_t line);

private:
    void begin(bool complete, uint64_t line);
    void take_stage(run_log &run, event what);
    void take_flash(run_log &run, const message &said);
    static void take_outcome(run_log &run, event what);

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
    for (finding &each : run.findings)
        each.settled = true;
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

void reader::take_flash(run_log &run, const message &said)
{
    const std::string_view argument = said.arguments.empty() ? "" : said.arguments[0];
    if (said.row->what == event::no_partition) {
        finish_partition(run, device);
        device.clear();
        return;
    }
    if (said.row->what == event::open_partition) {
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
    if (said.row->what == event::retry)
        partition->retries++;
    else if (said.row->what == event::difference)
        note_block(partition->different, argument);
    else if (said.row->what == event::unreadable)
        note_block(partition->unreadable, argument);
    else
        partition->trailer_failed = true;
}

void reader::take_outcome(run_log &run, event what)
{
    constexpr std::pair<event, outcome> outcomes[] = {
        {event::not_started, outcome::not_started},
        {event::invalid_url, outcome::invalid_url},
        {event::download_failed, outcome::download_failed},
        {event::invalid_package, outcome::invalid_package},
        {event::upgrade_failed, outcome::upgrade_failed},
    };
    for (const auto &[said, end] : outcomes)
        if (said == what)
            run.end = end;
    if (what == event::invalid_package)
        begin_check(run);
    else if (what == event::download_failed) // TFTP tells its length all the same
        run.reached = run.has_data() ? std::min(run.reached, phase::downloading) : phase::start;
}

void reader::take(const message &said, uint64_t line)
{
    const event what = said.row->what;
    if (what == event::start || file.runs.empty())
        begin(what == event::start || what == event::not_started, line);
    run_log &run = file.runs.back();
    run.last_line = line;
    const auto argument = [&](size_t index) { return said.arguments.at(index); };
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
    case event::logged_end:
        run.exit_status = number(argument(0));
        run.seconds = number(argument(1));
        break;
    case event::logged_network:
        run.network_started = true;
        break;
    default:
        if (what >= event::open_partition && what <= event::no_trailer)
            take_flash(run, said);
        else
            take_outcome(run, what);
    }
    if (said.row->weight == weight_trace)
        return;
    run.last = said.row;
    add_finding(run, said, line);
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
    reader into_file(file);
    bool cut = false;
    each_line(in, [&](std::string_view line, bool goes_on) {
        if (!cut)
            file.lines++;
        cut = goes_on;
        for (const message &said : find_messages(line))
            into_file.take(said, file.lines);
    });
    return file;
}

} // namespace doctor
