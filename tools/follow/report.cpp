// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/report.h"

#include <cinttypes>

#include "tools/follow/texts.h"

namespace follow {

namespace {

constexpr int format_version = 1;

void append_name(text_buffer *buffer, const char *name)
{
    append_format(buffer, ",\"%s\":", name);
}

void append_text(text_buffer *buffer, const char *name, const char *text)
{
    append_name(buffer, name);
    append_string(buffer, text);
}

// A time of a tenth of a second, null when it is negative.
void append_seconds(text_buffer *buffer, const char *name, int64_t milliseconds)
{
    append_name(buffer, name);
    if (milliseconds < 0)
        append(buffer, "null");
    else
        append_format(buffer, "%" PRId64 ".%d", milliseconds / 1000,
                      static_cast<int>(milliseconds % 1000 / 100));
}

void append_steps(text_buffer *buffer, const tracker *state, int64_t now_ms)
{
    append(buffer, ",\"steps\":{");
    bool first = true;
    for (size_t index = 0; index < step_count; index++) {
        const step_record &record = state->steps[index];
        if (!record.seen)
            continue;
        append_format(buffer, "%s\"%s\":{\"percent\":%d", first ? "" : ",", step_names[index],
                      record.percent);
        append_seconds(buffer, "seconds", tracker_step_ms(state, static_cast<step>(index), now_ms));
        append(buffer, "}");
        first = false;
    }
    append(buffer, "}");
}

} // namespace

void append_report(text_buffer *buffer, const tracker *state, int64_t now_ms, int64_t clock_ms)
{
    const phase_texts &text = texts[state->now];
    const step last = tracker_step(state);
    const outcome end = tracker_outcome(state);
    append_format(buffer, "{\"format\":%d,\"time\":%" PRId64 ".%03d,\"run\":%u", format_version,
                  clock_ms / 1000, static_cast<int>(clock_ms % 1000), state->run);
    append_text(buffer, "state", text.name);
    append_format(buffer, ",\"attempt\":%d,\"percent\":%d,\"overall\":%d", state->attempt,
                  last == step_count ? 0 : state->steps[last].percent, state->overall);
    append_steps(buffer, state, now_ms);
    append_seconds(buffer, "seconds", tracker_run_ms(state, now_ms));
    append_seconds(buffer, "rest_seconds", tracker_rest_ms(state, now_ms));
    append_seconds(buffer, "silent_seconds", tracker_silence_ms(state, now_ms));
    append_format(buffer, ",\"active\":%s,\"silent\":%s", tracker_active(state) ? "true" : "false",
                  state->silent && tracker_active(state) ? "true" : "false");
    if (end == outcome_none) {
        append(buffer, ",\"outcome\":null,\"exit_status\":null");
    } else {
        append_text(buffer, "outcome", outcome_names[end]);
        append_format(buffer, ",\"exit_status\":%d", tracker_exit_status(state));
    }
    if (state->error[0] == '\0')
        append(buffer, ",\"error\":null");
    else
        append_text(buffer, "error", state->error.data());
    append_text(buffer, "title", text.title);
    append_text(buffer, "sentence", text.sentence);
    append_text(buffer, "advice", text.advice);
    append_text(buffer, "silence", text.silence);
    append_text(buffer, "away", text.away);
    append(buffer, "}");
}

void append_sentences(text_buffer *buffer, const tracker *state, int64_t now_ms)
{
    const phase_texts &text = texts[state->now];
    if (state->attempt > 1 && tracker_active(state))
        append_format(buffer, "Attempt %d of 3. ", state->attempt);
    append(buffer, text.sentence);
    if (state->silent && tracker_active(state)) {
        append_format(buffer, " No word for %" PRId64 " s. ",
                      tracker_silence_ms(state, now_ms) / 1000);
        append(buffer, text.silence);
    }
    if (text.advice[0] != '\0') {
        append(buffer, " ");
        append(buffer, text.advice);
    }
}

} // namespace follow
