// SPDX-License-Identifier: GPL-2.0-or-later
//
// What is said of the state of an upgrade: every sentence that is shown to people, in one table,
// and the state as one JSON object: the lines of --json, the state file and what the page polls.
// docs/status-datagrams.md describes its members.
#pragma once

#include <array>

#include "tools/follow/json.h"
#include "tools/follow/tracker.h"

namespace follow {

/// What is said in one phase. Plain text in ASCII; none is null, what has nothing to say is empty.
struct phase_texts {
    const char *name;         ///< for programs: one word, fixed
    const char *title;        ///< two or three words
    const char *sentence;     ///< what goes on or went wrong, in a sentence or two
    const char *advice = "";  ///< after an outcome: what to do next
    const char *silence = ""; ///< what may be the cause when there is no word for long
    const char *away;         ///< for a page: what it means when the device stops answering now
};

extern const std::array<phase_texts, phase_count> texts;

/// The steps as a person calls them, and as programs do.
extern const std::array<const char *, step_count> step_titles;
extern const std::array<const char *, step_count> step_names;

/// By outcome: "done", "refused", "failed", "lost", and "none".
extern const std::array<const char *, 5> outcome_names;

/// Appends the object, without a newline.
void append_report(text_buffer *to, const tracker *state, moment now);

/// Appends what the person should know now, in one to three sentences: which attempt it is, what
/// goes on, for how long there was no word and why that may be, and after an outcome the advice.
void append_sentences(text_buffer *to, const tracker *state, int64_t now_ms);

} // namespace follow
