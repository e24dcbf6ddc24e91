// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the status datagrams of an upgrade mean: the one state machine behind every output. Plain
// data, no input or output, no clock of its own: the caller hands in datagrams and the time.
// docs/status-datagrams.md draws it.
//
// Times are milliseconds of any clock that does not run backwards.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace follow {

/// A time by two clocks.
struct moment {
    int64_t ms;       ///< of the one that does not run backwards
    int64_t clock_ms; ///< the time of day: since 1970
};

/// Where an upgrade stands. Indexes the table of texts (report.h).
enum phase {
    phase_waiting,     ///< nothing was heard yet
    phase_joined,      ///< a percentage came first: its stage is not known
    phase_downloading, ///< DOWNLOADING
    phase_downloaded,  ///< the download reached 100 %: the network stops, the package is checked
    phase_writing,     ///< WRITING
    phase_verifying,   ///< VERIFYING
    phase_verified,    ///< the read-back reached 100 %: two seconds of rest follow
    phase_done,        ///< DONE
    phase_invalid_url,
    phase_download_failed,
    phase_invalid_package,
    phase_upgrade_failed,
    phase_other_error, ///< an error text that is not among the four
    phase_lost,        ///< no word for so long that nobody can be sending
    phase_count
};

/// How an upgrade ended.
enum outcome { outcome_none, outcome_done, outcome_refused, outcome_failed, outcome_lost };

enum step { step_download, step_write, step_verify, step_count };

/// One stage of the present attempt.
struct step_record {
    bool seen;
    int percent;      ///< 0 to 100, never falling
    int64_t start_ms; ///< when its stage came
    int64_t grown_ms; ///< when `percent` was reached
    int64_t end_ms;   ///< when the next stage or the outcome came; 0 while it lasts
};

struct tracker {
    phase now;
    phase before_loss; ///< what to return to when a word comes after all
    unsigned run;      ///< which upgrade this is, from 1; 0 before the first word
    int attempt;       ///< of writing, 1 to 3; 0 before
    int overall;       ///< percentage of the whole; 100 with DONE alone
    bool silent;       ///< no word for silence_ms
    int64_t start_ms;  ///< first word of this run
    int64_t word_ms;   ///< last word
    int64_t end_ms;    ///< outcome
    std::array<step_record, step_count> steps;
    std::array<char, 64> error; ///< text of the error datagram, cut, empty without one
};

constexpr int64_t silence_ms = 30'000;
constexpr int64_t never_ms = INT64_MAX;
constexpr int64_t loss_ms = 330'000; ///< the program's own longest wait is 300 s

/// Begins anew: waiting, no run.
void tracker_start(tracker *state);

/// Takes the `size` bytes of a datagram that came at `now_ms`. Whatever is not one of the three
/// known forms changes nothing and counts as no word. True when something that is shown changed;
/// a percentage that did not grow is a word all the same.
bool tracker_take(tracker *state, std::string_view datagram, int64_t now_ms);

/// Lets time pass. Call it when all datagrams that have come were taken. True when silence began or
/// the upgrade counts as lost from now on.
bool tracker_tick(tracker *state, int64_t now_ms);

/// When tracker_tick has something to say next; never_ms where only a datagram changes something.
int64_t tracker_next_ms(const tracker *state);

/// True between the first word and the outcome.
bool tracker_active(const tracker *state);

outcome tracker_outcome(const tracker *state);

/// Exit status of the upgrade: 0 to 2 are its own, 3: none began, 4: lost.
int tracker_exit_status(const tracker *state);

/// The step that lasts, or lasted when the upgrade ended; step_count: none is known.
step tracker_step(const tracker *state);

/// An estimate of how long it still takes, -1 where there is none: at first, in silence, and when
/// it has proved wrong. For a download that is the download alone, since no datagram tells the size
/// of what is to be written.
int64_t tracker_rest_ms(const tracker *state, int64_t now_ms);

/// Milliseconds since the last word while the upgrade goes on, else 0.
int64_t tracker_silence_ms(const tracker *state, int64_t now_ms);

/// How long the run, or one of its steps, has lasted or did last.
int64_t tracker_run_ms(const tracker *state, int64_t now_ms);
int64_t tracker_step_ms(const tracker *state, step which, int64_t now_ms);

} // namespace follow
