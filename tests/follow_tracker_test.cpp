// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/tracker.h"

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/follow/report.h"

namespace {

using namespace follow;

std::string datagram(const std::string &word)
{
    const bool percentage = word.ends_with('%');
    const bool whole = word.find('=') != std::string::npos;
    return "UPGRD_" + (percentage ? "PERCENTAGE=" + word.substr(0, word.size() - 1)
                       : whole    ? word
                                  : "STAGE=" + word);
}

/// What is known after `story`: words with a comma between. "WRITING" is a stage, "57%" a
/// percentage, "ERROR=X" stands for itself, and with "+S" S seconds pass.
tracker play(const std::string &story)
{
    tracker state;
    tracker_start(&state);
    std::istringstream words(story);
    double seconds = 0;
    for (std::string word; std::getline(words >> std::ws, word, ',');) {
        if (word.starts_with('+'))
            seconds += std::stod(word);
        const auto now_ms = std::llround(seconds * 1000);
        if (!word.starts_with('+'))
            tracker_take(&state, datagram(word), now_ms);
        tracker_tick(&state, now_ms);
    }
    return state;
}

/// "writing, run 1, attempt 2, 10 %, overall 18, status 3", with the last step's percentage.
std::string summary(const tracker &state)
{
    const step last = tracker_step(&state);
    std::ostringstream out;
    out << texts.at(state.now).name << ", run " << state.run << ", attempt " << state.attempt
        << ", " << (last == step_count ? 0 : state.steps.at(last).percent) << " %, overall "
        << state.overall << ", status " << tracker_exit_status(&state);
    return out.str();
}

struct row {
    std::string story;
    const char *summary;
};

const std::vector<row> rows = {
    {"", "waiting, run 0, attempt 0, 0 %, overall 0, status 3"},
    {"DOWNLOADING, 0%, 50%, 100%", "downloaded, run 1, attempt 0, 100 %, overall 10, status 3"},
    {"DOWNLOADING, 100%, WRITING, 100%, VERIFYING, 100%, DONE, 0%",
     "done, run 1, attempt 1, 100 %, overall 100, status 0"},
    // TFTP: writing comes first.
    {"WRITING, 0%, 50%", "writing, run 1, attempt 1, 50 %, overall 50, status 3"},
    {"WRITING, VERIFYING, 100%", "verified, run 1, attempt 1, 100 %, overall 92, status 3"},
    // A second attempt begins at the writing, a fourth one is another run.
    {"WRITING, 100%, VERIFYING, 50%, WRITING, 0%, 10%",
     "writing, run 1, attempt 2, 10 %, overall 18, status 3"},
    {"WRITING, WRITING, WRITING, WRITING", "writing, run 2, attempt 1, 0 %, overall 10, status 3"},
    // Percentages above 100 are cut, negative ones are 0, those that fall are not taken.
    {"WRITING, 150%, 40%", "writing, run 1, attempt 1, 100 %, overall 90, status 3"},
    {"WRITING, -5%", "writing, run 1, attempt 1, 0 %, overall 10, status 3"},
    {"WRITING, 2147483648%, 99999999999999999999%",
     "writing, run 1, attempt 1, 100 %, overall 90, status 3"},
    // A follower that comes late learns the stage with the next one.
    {"57%", "joined, run 1, attempt 0, 0 %, overall 0, status 3"},
    {"57%, VERIFYING", "verifying, run 1, attempt 1, 0 %, overall 90, status 3"},
    {"ERROR=INVALID URL", "invalid-url, run 1, attempt 0, 0 %, overall 0, status 1"},
    {"DOWNLOADING, 40%, ERROR=DOWNLOAD FAILED",
     "download-failed, run 1, attempt 0, 40 %, overall 4, status 1"},
    {"DOWNLOADING, 100%, ERROR=INVALID PACKAGE",
     "invalid-package, run 1, attempt 0, 100 %, overall 10, status 1"},
    {"WRITING, WRITING, WRITING, ERROR=UPGRADE FAILED",
     "upgrade-failed, run 1, attempt 3, 0 %, overall 10, status 2"},
    // An error that is not known, before the writing and behind it.
    {"ERROR=OTHER", "other-error, run 1, attempt 0, 0 %, overall 0, status 1"},
    {"ERROR=OTHER, WRITING, ERROR=", "other-error, run 2, attempt 1, 0 %, overall 10, status 2"},
    // What begins another run.
    {"WRITING, DONE, 0%, DOWNLOADING", "downloading, run 2, attempt 0, 0 %, overall 0, status 3"},
    {"WRITING, 40%, DOWNLOADING", "downloading, run 2, attempt 0, 0 %, overall 0, status 3"},
    {"DONE, DONE", "done, run 1, attempt 0, 0 %, overall 100, status 0"},
    {"VERIFYING, 60%, VERIFYING", "verifying, run 1, attempt 1, 60 %, overall 91, status 3"},
    // Lost after 330 s of silence, which every word begins anew, and found again.
    {"WRITING, 10%, +330", "lost, run 1, attempt 1, 10 %, overall 18, status 4"},
    {"WRITING, +329.999, 10%, +329.999", "writing, run 1, attempt 1, 10 %, overall 18, status 3"},
    {"DOWNLOADING, 100%, +330, +70, WRITING",
     "writing, run 1, attempt 1, 0 %, overall 10, status 3"},
    {"WRITING, +330, +70, 3%", "writing, run 1, attempt 1, 3 %, overall 12, status 3"},
    {"WRITING, 50%, +330, +70, WRITING", // the device was reset
     "writing, run 2, attempt 1, 0 %, overall 10, status 3"},
    // What is not known changes nothing and is no word.
    {"WRITING, +20, STAGE=RESTING, STAGE=, PERCENTAGE=, PERCENTAGE=5 , PERCENTAGE=+5, "
     "PERCENTAGE=0x5, OTHER=1, +310",
     "lost, run 1, attempt 1, 0 %, overall 10, status 4"},
    {"ERROR=" + std::string(127 - 12, 'x'), // the longest text of the sender
     "other-error, run 1, attempt 0, 0 %, overall 0, status 1"},
    {"ERROR=" + std::string(128 - 12, 'x'), "waiting, run 0, attempt 0, 0 %, overall 0, status 3"},
};

TEST(FollowTracker, KnowsWhatDatagramsMean)
{
    for (const row &row : rows)
        EXPECT_EQ(summary(play(row.story)), row.summary) << row.story;
}

TEST(FollowTracker, SaysWhenSilenceBeginsAndWhenItIsOver)
{
    tracker state = play("+1, WRITING");
    EXPECT_EQ(tracker_next_ms(&state), 31'000);
    EXPECT_FALSE(tracker_tick(&state, 30'999));
    EXPECT_TRUE(tracker_tick(&state, 31'000));
    EXPECT_FALSE(tracker_tick(&state, 31'001));
    EXPECT_EQ(tracker_silence_ms(&state, 40'000), 39'000);
    EXPECT_EQ(tracker_next_ms(&state), 331'000);
    // The same percentage again is shown as nothing new, but ends the silence.
    EXPECT_TRUE(tracker_take(&state, "UPGRD_PERCENTAGE=0", 41'000));
    EXPECT_FALSE(state.silent);
    EXPECT_FALSE(tracker_take(&state, "UPGRD_PERCENTAGE=0", 42'000));
    EXPECT_EQ(tracker_next_ms(&state), 72'000);
    EXPECT_TRUE(tracker_tick(&state, 72'000));
    tracker_take(&state, "UPGRD_STAGE=WRITING", 73'000);
    EXPECT_FALSE(state.silent);
    tracker_take(&state, "UPGRD_STAGE=DONE", 74'000);
    EXPECT_EQ(tracker_next_ms(&state), never_ms);
    EXPECT_EQ(tracker_silence_ms(&state, 99'000), 0);
    state = play("WRITING, +330");
    EXPECT_EQ(tracker_run_ms(&state, 999'000), 330'000);
}

TEST(FollowTracker, EstimatesFromTheStepsOwnPace)
{
    const std::string verifying = "WRITING, +10, 25%, +81, VERIFYING, +0.005, 50%";
    const std::tuple<std::string, int64_t, int64_t> estimates[] = {
        {"WRITING, +0.999, 2%", 999, -1},      // too early
        {"WRITING, +1.5, 1%", 1500, -1},       // too little
        {"WRITING, +10, 25%", 10'000, 32'000}, // 75 more at 400 ms, and 2 s of rest
        {"WRITING, +10, 25%", 15'000, 27'000},
        {"WRITING, +10, 25%", 40'001, -1}, // it was wrong, so nothing is said
        {verifying, 91'005, 2005},
        {verifying + ", +0.005, 100%", 91'510, 1500},
        {verifying + ", +0.005, 100%, +2, DONE", 93'010, -1},
        // A download's estimate is of the download alone, and ends with it.
        {"DOWNLOADING, +4, 40%", 4000, 6000},
        {"DOWNLOADING, +4, 40%, +6, 100%", 10'000, -1},
    };
    for (const auto &[story, now_ms, rest_ms] : estimates) {
        const tracker state = play(story);
        EXPECT_EQ(tracker_rest_ms(&state, now_ms), rest_ms) << story;
    }
}

} // namespace
