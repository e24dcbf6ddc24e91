// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/report.h"

#include <cinttypes>

namespace follow {

namespace {

constexpr int format_version = 1;

constexpr char away_idle[] = "The device does not answer. This page goes on asking.";
constexpr char away_busy[] =
    "The device has stopped its network while it writes the new firmware. That is as it should be. "
    "Writing mostly takes less than a minute. Do not switch the device off. This page goes on "
    "asking.";
constexpr char away_ended[] =
    "The device no longer answers; it may be restarting. This is the last that was heard of it.";

void append_name(text_buffer *to, const char *name)
{
    append_format(to, ",\"%s\":", name);
}

// A string, or null.
void append_text(text_buffer *to, const char *name, const char *text)
{
    append_name(to, name);
    if (text == nullptr)
        append(to, "null");
    else
        append_string(to, text);
}

// A time of a tenth of a second, null when it is negative.
void append_seconds(text_buffer *to, const char *name, int64_t milliseconds)
{
    append_name(to, name);
    if (milliseconds < 0)
        append(to, "null");
    else
        append_format(to, "%" PRId64 ".%d", milliseconds / 1000,
                      static_cast<int>(milliseconds % 1000 / 100));
}

void append_steps(text_buffer *to, const tracker *state, int64_t now_ms)
{
    append(to, ",\"steps\":{");
    bool first = true;
    for (size_t index = 0; index < step_count; index++) {
        const step_record &present = state->steps[index];
        if (!present.seen)
            continue;
        append_format(to, "%s\"%s\":{\"percent\":%d", first ? "" : ",", step_names[index],
                      present.percent);
        append_seconds(to, "seconds", tracker_step_ms(state, static_cast<step>(index), now_ms));
        append(to, "}");
        first = false;
    }
    append(to, "}");
}

} // namespace

void append_report(text_buffer *to, const tracker *state, moment now)
{
    const phase_texts &text = texts[state->now];
    const step last = tracker_step(state);
    const outcome ending = tracker_outcome(state);
    append_format(to, "{\"format\":%d,\"time\":%" PRId64 ".%03d,\"run\":%u", format_version,
                  now.clock_ms / 1000, static_cast<int>(now.clock_ms % 1000), state->run);
    append_text(to, "state", text.name);
    append_format(to, ",\"attempt\":%d,\"percent\":%d,\"overall\":%d", state->attempt,
                  last == step_count ? 0 : state->steps[last].percent, state->overall);
    append_steps(to, state, now.ms);
    append_seconds(to, "seconds", tracker_run_ms(state, now.ms));
    append_seconds(to, "rest_seconds", tracker_rest_ms(state, now.ms));
    append_seconds(to, "silent_seconds", tracker_silence_ms(state, now.ms));
    append_format(to, ",\"active\":%s,\"silent\":%s", tracker_active(state) ? "true" : "false",
                  state->silent && tracker_active(state) ? "true" : "false");
    append_text(to, "outcome", ending == outcome_none ? nullptr : outcome_names[ending]);
    append_name(to, "exit_status");
    if (ending == outcome_none)
        append(to, "null");
    else
        append_format(to, "%d", tracker_exit_status(state));
    append_text(to, "error", state->error[0] == '\0' ? nullptr : state->error.data());
    append_text(to, "title", text.title);
    append_text(to, "sentence", text.sentence);
    append_text(to, "advice", text.advice);
    append_text(to, "silence", text.silence);
    append_text(to, "away", text.away);
    append(to, "}");
}

void append_sentences(text_buffer *to, const tracker *state, int64_t now_ms)
{
    const phase_texts &text = texts[state->now];
    if (state->attempt > 1 && tracker_active(state))
        append_format(to, "Attempt %d of 3. ", state->attempt);
    append(to, text.sentence);
    if (state->silent && tracker_active(state)) {
        append_format(to, " No word for %" PRId64 " s. ", tracker_silence_ms(state, now_ms) / 1000);
        append(to, text.silence);
    }
    if (text.advice[0] != '\0') {
        append(to, " ");
        append(to, text.advice);
    }
}

const std::array<phase_texts, phase_count> texts = {{
    {.name = "waiting",
     .title = "Waiting",
     .sentence = "Waiting for an upgrade to begin.",
     .away = away_idle},
    {.name = "joined",
     .title = "Under way",
     .sentence = "An upgrade is under way; how far it is will be known when its next stage begins. "
                 "Do not switch the device off.",
     .silence = "A slow download, or a block that the flash refuses, may be the cause.",
     .away = away_busy},
    {.name = "downloading",
     .title = "Downloading",
     .sentence = "Downloading the new firmware. Nothing was changed so far.",
     .silence = "The server may be slow or gone, or it did not tell the size of the download. "
                "The device waits up to 300 s for a server.",
     .away = away_busy},
    {.name = "downloaded",
     .title = "Checking",
     .sentence = "The new firmware is here. The device stops its network and checks it. "
                 "Do not switch the device off.",
     .silence = "The script that stops the network may hang.",
     .away = away_busy},
    {.name = "writing",
     .title = "Writing",
     .sentence = "Writing the new firmware. Do not switch the device off.",
     .silence = "The flash may refuse a block, which is tried again and again, or the device may "
                "have been reset.",
     .away = away_busy},
    {.name = "verifying",
     .title = "Verifying",
     .sentence = "Reading the new firmware back. Do not switch the device off.",
     .silence = "The flash may be hard to read, or the device may have been reset.",
     .away = away_busy},
    {.name = "verified",
     .title = "Finishing",
     .sentence = "The new firmware is written and read back. A moment more. "
                 "Do not switch the device off.",
     .silence = "The device may have been reset.",
     .away = away_busy},
    {.name = "done",
     .title = "Done",
     .sentence = "The new firmware is written.",
     .advice = "Restart the device if it does not restart by itself.",
     .away = away_ended},
    {.name = "invalid-url",
     .title = "Address refused",
     .sentence = "The address of the new firmware is not one that the device can use. "
                 "Nothing was changed.",
     .advice = "Correct the address (it begins with http://, https://, ftp:// or tftp://) and try "
               "again.",
     .away = away_ended},
    {.name = "download-failed",
     .title = "Download failed",
     .sentence = "The new firmware could not be downloaded. Nothing was changed.",
     .advice = "See whether the server runs, the address is right and the cable is in, and try "
               "again.",
     .away = away_ended},
    {.name = "invalid-package",
     .title = "Package refused",
     .sentence =
         "The new firmware is damaged or not made for this device. Nothing was changed, but "
         "the device's network is stopped.",
     .advice = "Restart the device to get its network back, and try another package.",
     .away = away_ended},
    {.name = "upgrade-failed",
     .title = "Upgrade failed",
     .sentence =
         "The new firmware could not be written in three attempts. The device may not start "
         "any more.",
     .advice =
         "Leave the device switched on if you can, repeat the upgrade, and ask for support if "
         "it fails again.",
     .away = away_ended},
    {.name = "other-error",
     .title = "Upgrade failed",
     .sentence = "The upgrade ended with an error that is not known here.",
     .advice = "Ask for support, with the text of the error.",
     .away = away_ended},
    {.name = "lost",
     .title = "Lost",
     .sentence = "Nothing was heard of the upgrade for so long that it was interrupted, most "
                 "likely by a reset or a loss of power.",
     .advice = "See whether the device starts, and repeat the upgrade.",
     .away = away_ended},
}};

const std::array<const char *, step_count> step_titles = {"Download", "Write", "Verify"};
const std::array<const char *, step_count> step_names = {"download", "write", "verify"};
const std::array<const char *, 5> outcome_names = {"none", "done", "refused", "failed", "lost"};

} // namespace follow
