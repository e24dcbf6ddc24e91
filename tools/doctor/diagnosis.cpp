// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/doctor/diagnosis.h"

#include <algorithm>
#include <sstream>

namespace doctor {

namespace {

constexpr uint64_t circle_redirects = 20;

/// The first finding of the greatest weight, if that is at least `least`.
const finding *heaviest(const run_log &run, int least)
{
    const finding *best = nullptr;
    for (const finding &each : run.findings)
        if (!each.settled && each.row->weight >= least &&
            (best == nullptr || each.row->weight > best->row->weight))
            best = &each;
    return best;
}

bool spoils_result(const finding &said)
{
    return said.row->what == event::difference || said.row->what == event::unreadable ||
           said.row->what == event::no_trailer;
}

const finding *first_flaw(const run_log &run)
{
    const auto found = std::ranges::find_if(run.findings, spoils_result);
    return found == run.findings.end() ? nullptr : &*found;
}

diagnosis from_finding(const finding &said)
{
    return {meaning_of(said), split_lines(said.row->remedies), &said, network_state::unknown};
}

diagnosis from_situation(situation shown)
{
    const situation_row &row = situation_rows[static_cast<size_t>(shown)];
    return {row.meaning, split_lines(row.remedies), nullptr, network_state::unknown};
}

/// Of a log that ends before the run did.
diagnosis diagnose_cut(const run_log &run)
{
    if (run.last != nullptr && run.last->what == event::retry)
        return from_finding(*std::ranges::find(run.findings, run.last, &finding::row));
    if (run.redirects > circle_redirects && run.reached == phase::start)
        return from_situation(situation::redirect_circle);
    if (const finding *found = heaviest(run, weight_likely))
        return from_finding(*found);
    switch (run.reached) {
    case phase::start:
        return from_situation(situation::cut_start);
    case phase::downloading:
        return from_situation(run.percent == 100 ? situation::cut_script : situation::cut_download);
    case phase::downloaded:
    case phase::checking:
        return from_situation(situation::cut_script);
    case phase::writing:
        return from_situation(situation::cut_writing);
    case phase::verifying:
    case phase::done:
        break;
    }
    return from_situation(situation::cut_verifying);
}

/// Whether the time that upgrade-logged took tells silence from a connection that ended.
bool was_silent(const run_log &run)
{
    constexpr int64_t silence_seconds = 300;
    return run.seconds >= silence_seconds && heaviest(run, weight_likely) == nullptr;
}

diagnosis diagnose_end(const run_log &run)
{
    const auto found_or = [&](int least, situation otherwise) {
        const finding *found = heaviest(run, least);
        if (found != nullptr)
            return from_finding(*found);
        return from_situation(run.complete ? otherwise : situation::no_beginning);
    };
    switch (run.end) {
    case outcome::done: {
        const finding *flaw = first_flaw(run);
        return flaw != nullptr ? from_finding(*flaw) : from_situation(situation::upgraded);
    }
    case outcome::not_started:
    case outcome::invalid_url:
        return found_or(weight_consequence, situation::unusable_url);
    case outcome::download_failed:
        if (was_silent(run))
            return from_situation(situation::server_silent);
        return run.reached == phase::downloading
                   ? found_or(weight_hint, situation::download_ended)
                   : found_or(weight_consequence, situation::download_unexplained);
    case outcome::invalid_package:
        return found_or(weight_likely, situation::part_does_not_apply);
    case outcome::upgrade_failed:
        return found_or(weight_flash_cause, situation::failed_unexplained);
    case outcome::none:
        break;
    }
    return diagnose_cut(run);
}

network_state judge_network(const run_log &run)
{
    if (run.network_started)
        return network_state::started_again;
    if (run.end == outcome::not_started || run.end == outcome::invalid_url ||
        run.end == outcome::download_failed)
        return network_state::runs;
    if (run.reached >= phase::checking)
        return network_state::stopped;
    const bool may_be_complete = run.reached == phase::downloaded || run.percent == 100;
    return may_be_complete ? network_state::unknown : network_state::runs;
}

} // namespace

std::string meaning_of(const finding &said)
{
    std::string_view meaning = said.row->meaning;
    std::string text;
    while (!meaning.empty()) {
        const size_t index = meaning.size() > 2 && meaning[0] == '{' && meaning[2] == '}'
                                 ? static_cast<size_t>(meaning[1] - '1')
                                 : SIZE_MAX;
        if (index < said.arguments.size()) {
            text += said.arguments[index];
            meaning.remove_prefix(3);
        } else {
            text += meaning.front();
            meaning.remove_prefix(1);
        }
    }
    return text;
}

diagnosis diagnose(const run_log &run)
{
    diagnosis result = diagnose_end(run);
    result.network = judge_network(run);
    return result;
}

bool is_flawless(const run_log &run)
{
    return run.end == outcome::done && first_flaw(run) == nullptr;
}

std::vector<std::string> split_lines(const char *text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

} // namespace doctor
