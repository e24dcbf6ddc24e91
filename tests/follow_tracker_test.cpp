// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/tracker.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace follow;

struct event {
    int64_t at_ms;
    std::string text; ///< without "UPGRD_"; empty: time alone passes
};

tracker play(const std::vector<event> &events)
{
    tracker state;
    tracker_start(&state);
    for (const event &one : events) {
        if (!one.text.empty())
            tracker_take(&state, "UPGRD_" + one.text, one.at_ms);
        tracker_tick(&state, one.at_ms);
    }
    return state;
}

struct story {
    const char *name;
    std::vector<event> events;
    phase now;
    int exit_status;
    unsigned run;
    int attempt;
    int percent; ///< of the last step
    int overall;
};

const std::vector<story> stories = {
    {"nothing", {}, phase_waiting, 3, 0, 0, 0, 0},
    {"a whole download",
     {{0, "STAGE=DOWNLOADING"}, {0, "PERCENTAGE=0"}, {9, "PERCENTAGE=50"}, {9, "PERCENTAGE=100"}},
     phase_downloaded,
     3,
     1,
     0,
     100,
     10},
    {"a whole upgrade",
     {{0, "STAGE=DOWNLOADING"},
      {1, "PERCENTAGE=100"},
      {2, "STAGE=WRITING"},
      {3, "PERCENTAGE=100"},
      {4, "STAGE=VERIFYING"},
      {5, "PERCENTAGE=100"},
      {6, "STAGE=DONE"},
      {7, "PERCENTAGE=0"}},
     phase_done,
     0,
     1,
     1,
     100,
     100},
    {"TFTP: writing comes first",
     {{0, "STAGE=WRITING"}, {0, "PERCENTAGE=0"}, {5, "PERCENTAGE=50"}},
     phase_writing,
     3,
     1,
     1,
     50,
     50},
    {"read back, not yet done",
     {{0, "STAGE=WRITING"}, {1, "STAGE=VERIFYING"}, {2, "PERCENTAGE=100"}},
     phase_verified,
     3,
     1,
     1,
     100,
     92},
    {"a second attempt begins at the writing",
     {{0, "STAGE=WRITING"},
      {1, "PERCENTAGE=70"},
      {2, "STAGE=WRITING"},
      {2, "PERCENTAGE=0"},
      {3, "PERCENTAGE=10"}},
     phase_writing,
     3,
     1,
     2,
     10,
     18},
    {"a fourth attempt is another run",
     {{0, "STAGE=WRITING"}, {1, "STAGE=WRITING"}, {2, "STAGE=WRITING"}, {3, "STAGE=WRITING"}},
     phase_writing,
     3,
     2,
     1,
     0,
     10},
    {"percentages above 100 are cut, those that fall are not taken",
     {{0, "STAGE=WRITING"}, {1, "PERCENTAGE=150"}, {2, "PERCENTAGE=40"}, {3, "PERCENTAGE=-5"}},
     phase_writing,
     3,
     1,
     1,
     100,
     90},
    {"a percentage of 2^31 and far beyond",
     {{0, "STAGE=WRITING"}, {1, "PERCENTAGE=2147483648"}, {2, "PERCENTAGE=99999999999999999999"}},
     phase_writing,
     3,
     1,
     1,
     100,
     90},
    {"a follower that comes late", {{0, "PERCENTAGE=57"}}, phase_joined, 3, 1, 0, 0, 0},
    {"a late follower learns the stage",
     {{0, "PERCENTAGE=57"}, {1, "STAGE=VERIFYING"}},
     phase_verifying,
     3,
     1,
     1,
     0,
     90},
    {"a refused URL", {{0, "ERROR=INVALID URL"}}, phase_invalid_url, 1, 1, 0, 0, 0},
    {"a failed download keeps its percentage",
     {{0, "STAGE=DOWNLOADING"}, {1, "PERCENTAGE=40"}, {2, "ERROR=DOWNLOAD FAILED"}},
     phase_download_failed,
     1,
     1,
     0,
     40,
     4},
    {"a refused package",
     {{0, "STAGE=DOWNLOADING"}, {1, "PERCENTAGE=100"}, {2, "ERROR=INVALID PACKAGE"}},
     phase_invalid_package,
     1,
     1,
     0,
     100,
     10},
    {"three failed attempts",
     {{0, "STAGE=WRITING"},
      {1, "STAGE=WRITING"},
      {2, "STAGE=WRITING"},
      {3, "ERROR=UPGRADE FAILED"}},
     phase_upgrade_failed,
     2,
     1,
     3,
     0,
     10},
    {"an unknown error before writing, and behind it",
     {{0, "ERROR=OTHER"}, {1, "STAGE=WRITING"}, {2, "ERROR="}},
     phase_other_error,
     2,
     2,
     1,
     0,
     10},
    {"a new run after an outcome starts over",
     {{0, "STAGE=WRITING"}, {1, "STAGE=DONE"}, {2, "PERCENTAGE=0"}, {3, "STAGE=DOWNLOADING"}},
     phase_downloading,
     3,
     2,
     0,
     0,
     0},
    {"DONE twice is one run", {{0, "STAGE=DONE"}, {1, "STAGE=DONE"}}, phase_done, 0, 1, 0, 0, 100},
    {"DOWNLOADING in the middle is another run",
     {{0, "STAGE=WRITING"}, {1, "PERCENTAGE=40"}, {2, "STAGE=DOWNLOADING"}},
     phase_downloading,
     3,
     2,
     0,
     0,
     0},
    {"a second VERIFYING does not fall back",
     {{0, "STAGE=VERIFYING"}, {1, "PERCENTAGE=60"}, {2, "STAGE=VERIFYING"}},
     phase_verifying,
     3,
     1,
     1,
     60,
     91},
    {"lost after 330 s",
     {{0, "STAGE=WRITING"}, {1000, "PERCENTAGE=10"}, {331'000, ""}},
     phase_lost,
     4,
     1,
     1,
     10,
     18},
    {"not lost before, and a word begins the silence anew",
     {{0, "STAGE=WRITING"}, {329'999, ""}, {329'999, "PERCENTAGE=10"}, {659'998, ""}},
     phase_writing,
     3,
     1,
     1,
     10,
     18},
    {"found again after a script of 400 s",
     {{0, "STAGE=DOWNLOADING"}, {0, "PERCENTAGE=100"}, {330'000, ""}, {400'000, "STAGE=WRITING"}},
     phase_writing,
     3,
     1,
     1,
     0,
     10},
    {"found again by a percentage",
     {{0, "STAGE=WRITING"}, {330'000, ""}, {400'000, "PERCENTAGE=3"}},
     phase_writing,
     3,
     1,
     1,
     3,
     12},
    {"lost while writing and writing again: the device was reset",
     {{0, "STAGE=WRITING"}, {0, "PERCENTAGE=50"}, {330'000, ""}, {400'000, "STAGE=WRITING"}},
     phase_writing,
     3,
     2,
     1,
     0,
     10},
    {"what is not known changes nothing and is no word",
     {{0, "STAGE=WRITING"},
      {20'000, "STAGE=RESTING"},
      {20'000, "STAGE="},
      {20'000, "PERCENTAGE="},
      {20'000, "PERCENTAGE=5 "},
      {20'000, "PERCENTAGE=+5"},
      {20'000, "PERCENTAGE=0x5"},
      {20'000, "OTHER=1"},
      {20'000, "ERROR=" + std::string(200, 'x')},
      {330'000, ""}},
     phase_lost,
     4,
     1,
     1,
     0,
     10},
};

TEST(FollowTracker, KnowsWhatDatagramsMean)
{
    for (const story &one : stories) {
        SCOPED_TRACE(one.name);
        const tracker state = play(one.events);
        EXPECT_EQ(state.now, one.now);
        EXPECT_EQ(tracker_exit_status(&state), one.exit_status);
        EXPECT_EQ(state.run, one.run);
        EXPECT_EQ(state.attempt, one.attempt);
        EXPECT_EQ(state.overall, one.overall);
        const step last = tracker_step(&state);
        EXPECT_EQ(last == step_count ? 0 : state.steps.at(last).percent, one.percent);
    }
}

TEST(FollowTracker, SaysWhenSilenceBeginsAndWhenItIsOver)
{
    tracker state = play({{1000, "STAGE=WRITING"}});
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
    tracker_take(&state, "UPGRD_STAGE=DONE", 43'000);
    EXPECT_EQ(tracker_next_ms(&state), -1);
    EXPECT_EQ(tracker_silence_ms(&state, 99'000), 0);
}

TEST(FollowTracker, EstimatesFromTheStepsOwnPace)
{
    tracker state = play({{0, "STAGE=WRITING"}, {500, "PERCENTAGE=1"}});
    EXPECT_EQ(tracker_rest_ms(&state, 500), -1); // too early
    tracker_take(&state, "UPGRD_PERCENTAGE=25", 10'000);
    EXPECT_EQ(tracker_rest_ms(&state, 10'000), 32'000); // 75 more at 400 ms, and 2 s of rest
    EXPECT_EQ(tracker_rest_ms(&state, 15'000), 27'000);
    EXPECT_EQ(tracker_rest_ms(&state, 40'001), -1); // it was wrong, so nothing is said
    tracker_take(&state, "UPGRD_STAGE=VERIFYING", 91'000);
    tracker_take(&state, "UPGRD_PERCENTAGE=100", 91'010);
    EXPECT_EQ(tracker_rest_ms(&state, 91'510), 1500);
    tracker_take(&state, "UPGRD_STAGE=DONE", 93'010);
    EXPECT_EQ(tracker_rest_ms(&state, 93'010), -1);
    EXPECT_EQ(tracker_run_ms(&state, 99'999), 93'010);
    EXPECT_EQ(tracker_step_ms(&state, step_write, 99'999), 91'000);
    // A download's estimate is of the download alone, and ends with it.
    state = play({{0, "STAGE=DOWNLOADING"}, {4000, "PERCENTAGE=40"}});
    EXPECT_EQ(tracker_rest_ms(&state, 4000), 6000);
    tracker_take(&state, "UPGRD_PERCENTAGE=100", 10'000);
    EXPECT_EQ(tracker_rest_ms(&state, 10'000), -1);
}

TEST(FollowTracker, StaysSaneWhateverComesInWhateverOrder)
{
    const std::vector<std::string> texts = {"UPGRD_STAGE=DOWNLOADING",
                                            "UPGRD_STAGE=WRITING",
                                            "UPGRD_STAGE=VERIFYING",
                                            "UPGRD_STAGE=DONE",
                                            "UPGRD_ERROR=INVALID PACKAGE",
                                            "UPGRD_ERROR=\x1b[2J",
                                            "",
                                            "UPGRD_",
                                            "UPGRD_PERCENTAGE=3",
                                            "UPGRD_PERCENTAGE=100",
                                            "UPGRD_PERCENTAGE=77",
                                            std::string(65'536, 'U')};
    std::mt19937 random(7);
    tracker state;
    tracker_start(&state);
    int64_t now_ms = 0;
    for (int turn = 0; turn < 200'000; turn++) {
        const tracker before = state;
        now_ms += random() % 100 == 0 ? 331'000 : random() % 50;
        if (random() % 4 == 0)
            tracker_tick(&state, now_ms);
        else
            tracker_take(&state, texts.at(random() % texts.size()), now_ms);
        ASSERT_TRUE(state.overall >= 0 && state.overall <= 100);
        ASSERT_EQ(state.overall == 100, state.now == phase_done);
        ASSERT_TRUE(state.attempt >= 0 && state.attempt <= 3);
        ASSERT_GE(tracker_run_ms(&state, now_ms), 0);
        ASSERT_GE(tracker_rest_ms(&state, now_ms), -1);
        if (before.run == state.run && before.attempt == state.attempt) {
            ASSERT_GE(state.overall, before.overall) << before.now << " to " << state.now;
        }
    }
}

} // namespace
