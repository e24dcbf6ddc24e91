// SPDX-License-Identifier: GPL-2.0-or-later
//
// The state of an upgrade as one JSON object: the lines of --json, the state file and what the page
// polls. docs/status-datagrams.md describes the members.
#pragma once

#include "tools/follow/json.h"
#include "tools/follow/tracker.h"

namespace follow {

constexpr size_t report_limit = 4096; ///< more than any state needs

/// Appends the object, without a newline. `clock_ms` is the time of day of `now_ms`, in
/// milliseconds since 1970.
void append_report(text_buffer *buffer, const tracker *state, int64_t now_ms, int64_t clock_ms);

/// Appends what the person should know now, in one to three sentences: which attempt it is, what
/// goes on, for how long there was no word and why that may be, and after an outcome the advice.
void append_sentences(text_buffer *buffer, const tracker *state, int64_t now_ms);

} // namespace follow
