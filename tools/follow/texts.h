// SPDX-License-Identifier: GPL-2.0-or-later
//
// Every sentence about an upgrade that is shown to people, in one table.
#pragma once

#include <array>

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

} // namespace follow
