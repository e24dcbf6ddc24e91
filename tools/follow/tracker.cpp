// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/tracker.h"

#include <algorithm>
#include <cstring>

#include "platform/device.h"

namespace follow {

namespace {

constexpr int attempt_limit = 3;
constexpr size_t datagram_limit = 127; // the sender's longest text
constexpr int64_t rest_after_verifying_ms = 2000;
constexpr int estimate_from_percent = 2;
constexpr int64_t estimate_from_ms = 1000;

// Where each step begins and ends in the whole, by the time it takes: a block is 40 ms of writing
// and next to nothing of reading, and two seconds of rest come last.
constexpr std::array<int, step_count + 1> whole = {0, 10, 90, 92};

bool cut_prefix(std::string_view *text, std::string_view prefix)
{
    if (!text->starts_with(prefix))
        return false;
    text->remove_prefix(prefix.size());
    return true;
}

// A decimal number, cut to 0 to 100; -1 for anything else.
int read_percent(std::string_view text)
{
    const bool negative = cut_prefix(&text, "-");
    if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos)
        return -1;
    int value = 0;
    for (const char digit : text)
        value = std::min(100, value * 10 + (digit - '0'));
    return negative ? 0 : value;
}

bool ended(const tracker *state)
{
    return tracker_outcome(state) != outcome_none;
}

void end_step(tracker *state, int64_t now_ms)
{
    for (step_record &each : state->steps)
        if (each.seen && each.end_ms == 0)
            each.end_ms = now_ms;
}

void begin_run(tracker *state, int64_t now_ms)
{
    const unsigned run = state->run + 1;
    tracker_start(state);
    state->run = run;
    state->start_ms = now_ms;
}

void grow_overall(tracker *state, step which)
{
    const int share = (whole[which + 1] - whole[which]) * state->steps[which].percent / 100;
    state->overall = std::max(state->overall, whole[which] + share);
}

void begin_step(tracker *state, step which, int64_t now_ms)
{
    end_step(state, now_ms);
    state->steps[which] = {
        .seen = true, .percent = 0, .start_ms = now_ms, .grown_ms = now_ms, .end_ms = 0};
    grow_overall(state, which);
}

// Before the first word of a run. A lost upgrade may still go on, so only what it could not say
// itself begins another.
bool is_fresh(const tracker *state)
{
    return state->now == phase_waiting || (ended(state) && state->now != phase_lost);
}

void begin_writing(tracker *state, int64_t now_ms)
{
    const bool was_writing = state->now == phase_lost && state->before_loss >= phase_writing;
    if (is_fresh(state) || was_writing || state->attempt == attempt_limit)
        begin_run(state, now_ms);
    state->attempt++;
    state->overall = 0;
    state->steps[step_verify] = {};
    begin_step(state, step_write, now_ms);
    state->now = phase_writing;
}

bool take_stage(tracker *state, std::string_view stage, int64_t now_ms)
{
    if (stage == "DOWNLOADING") {
        begin_run(state, now_ms); // an upgrade says it once: this is another
        begin_step(state, step_download, now_ms);
        state->now = phase_downloading;
    } else if (stage == "WRITING") {
        begin_writing(state, now_ms);
    } else if (stage == "VERIFYING") {
        if (is_fresh(state))
            begin_run(state, now_ms);
        state->attempt = std::max(state->attempt, 1);
        // A second one is another upgrade's word: what was shown does not fall back.
        const step_record &present = state->steps[step_verify];
        if (!present.seen)
            begin_step(state, step_verify, now_ms);
        state->now = present.percent == 100 ? phase_verified : phase_verifying;
    } else if (stage == "DONE") {
        if (is_fresh(state) && state->now != phase_done)
            begin_run(state, now_ms);
        end_step(state, now_ms);
        state->overall = 100;
        state->end_ms = now_ms;
        state->now = phase_done;
    } else {
        return false;
    }
    return true;
}

void take_error(tracker *state, std::string_view error, int64_t now_ms)
{
    if (is_fresh(state))
        begin_run(state, now_ms);
    constexpr std::array<std::string_view, 4> errors = {"INVALID URL", "DOWNLOAD FAILED",
                                                        "INVALID PACKAGE", "UPGRADE FAILED"};
    const size_t index =
        static_cast<size_t>(std::find(errors.begin(), errors.end(), error) - errors.begin());
    state->now = static_cast<phase>(phase_invalid_url + static_cast<int>(index));
    memcpy(state->error.data(), error.data(), std::min(error.size(), state->error.size() - 1));
    end_step(state, now_ms);
    state->end_ms = now_ms;
}

/// True when something that is shown changed.
bool take_percent(tracker *state, int percent, int64_t now_ms)
{
    if (state->now == phase_waiting) {
        begin_run(state, now_ms);
        state->now = phase_joined;
        return true;
    }
    const step which = tracker_step(state);
    if (which == step_count || percent <= state->steps[which].percent)
        return false;
    step_record &present = state->steps[which];
    present.percent = percent;
    present.grown_ms = now_ms;
    grow_overall(state, which);
    if (percent == 100 && state->now == phase_downloading)
        state->now = phase_downloaded;
    if (percent == 100 && state->now == phase_verifying)
        state->now = phase_verified;
    return true;
}

} // namespace

void tracker_start(tracker *state)
{
    *state = {}; // phase_waiting, too
}

bool tracker_take(tracker *state, std::string_view datagram, int64_t now_ms)
{
    if (datagram.size() > datagram_limit)
        return false;
    bool shown = true;
    if (cut_prefix(&datagram, status_stage)) {
        if (!take_stage(state, datagram, now_ms))
            return false;
    } else if (cut_prefix(&datagram, status_error)) {
        take_error(state, datagram, now_ms);
    } else {
        const int percent = cut_prefix(&datagram, status_percentage) ? read_percent(datagram) : -1;
        if (percent < 0)
            return false;
        const bool was_lost = state->now == phase_lost;
        if (was_lost)
            state->now = state->before_loss;
        if (ended(state))
            return false; // the 0 that follows DONE
        shown = take_percent(state, percent, now_ms) || state->silent || was_lost;
    }
    state->word_ms = now_ms;
    state->silent = false;
    return shown;
}

bool tracker_tick(tracker *state, int64_t now_ms)
{
    const int64_t silence = tracker_silence_ms(state, now_ms);
    if (silence >= loss_ms) {
        state->before_loss = state->now;
        state->now = phase_lost;
        state->end_ms = now_ms;
        return true;
    }
    if (silence >= silence_ms && !state->silent) {
        state->silent = true;
        return true;
    }
    return false;
}

int64_t tracker_next_ms(const tracker *state)
{
    if (!tracker_active(state))
        return never_ms;
    return state->word_ms + (state->silent ? loss_ms : silence_ms);
}

bool tracker_active(const tracker *state)
{
    return state->now != phase_waiting && !ended(state);
}

outcome tracker_outcome(const tracker *state)
{
    if (state->now < phase_done)
        return outcome_none;
    if (state->now == phase_done)
        return outcome_done;
    if (state->now == phase_lost)
        return outcome_lost;
    const bool failed = state->now == phase_upgrade_failed ||
                        (state->now == phase_other_error && state->attempt > 0);
    return failed ? outcome_failed : outcome_refused;
}

int tracker_exit_status(const tracker *state)
{
    constexpr std::array statuses = {3, 0, 1, 2, 4}; // by outcome
    return statuses[tracker_outcome(state)];
}

step tracker_step(const tracker *state)
{
    for (const step which : {step_verify, step_write, step_download})
        if (state->steps[which].seen)
            return which;
    return step_count;
}

int64_t tracker_rest_ms(const tracker *state, int64_t now_ms)
{
    const step which = tracker_step(state);
    if (!tracker_active(state) || state->silent || which == step_count ||
        state->now == phase_downloaded)
        return -1;
    const step_record &present = state->steps[which];
    const int64_t taken = present.grown_ms - present.start_ms;
    const int64_t after = which == step_download ? 0 : rest_after_verifying_ms;
    if (state->now == phase_verified)
        return std::max<int64_t>(0, present.grown_ms + after - now_ms);
    if (present.percent < estimate_from_percent ||
        (taken < estimate_from_ms && which != step_verify))
        return -1;
    const int64_t end_ms = present.grown_ms + taken * (100 - present.percent) / present.percent;
    return end_ms < now_ms ? -1 : end_ms - now_ms + after; // past its end it was wrong
}

int64_t tracker_silence_ms(const tracker *state, int64_t now_ms)
{
    return tracker_active(state) ? std::max<int64_t>(0, now_ms - state->word_ms) : 0;
}

int64_t tracker_run_ms(const tracker *state, int64_t now_ms)
{
    if (state->run == 0)
        return 0;
    return std::max<int64_t>(0, (ended(state) ? state->end_ms : now_ms) - state->start_ms);
}

int64_t tracker_step_ms(const tracker *state, step which, int64_t now_ms)
{
    const step_record &present = state->steps[which];
    if (!present.seen)
        return 0;
    const int64_t last_ms = ended(state) ? state->end_ms : now_ms;
    return std::max<int64_t>(0,
                             (present.end_ms != 0 ? present.end_ms : last_ms) - present.start_ms);
}

} // namespace follow
