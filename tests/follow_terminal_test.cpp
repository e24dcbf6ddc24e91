// SPDX-License-Identifier: GPL-2.0-or-later
//
// How an upgrade is shown: on a terminal, in plain lines, as JSON.
#include <cstdlib>
#include <fcntl.h>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/text.h"
#include "tools/follow/report.h"
#include "tools/follow/terminal.h"

namespace {

using namespace follow;

/// A run that was told nothing so far, and how it is shown.
struct shown_run {
    tracker state;
    terminal screen = {};
    shown_run()
    {
        tracker_start(&state);
        screen.shown = phase_count;
        screen.width = 80;
    }
    std::string frame(int64_t now_ms)
    {
        text_buffer drawn;
        append_frame(&drawn, &screen, &state, now_ms);
        return std::string(drawn.view());
    }
    /// Takes what follows "UPGRD_".
    std::string take(const std::string &word, int64_t now_ms)
    {
        tracker_take(&state, "UPGRD_" + word, now_ms);
        tracker_tick(&state, now_ms);
        return frame(now_ms);
    }
};

/// A frame in which "|" ends a line, "^2" goes up by two lines and "_" erases what is below.
std::string drawn(std::string frame)
{
    for (const auto &[from, to] :
         {std::pair("\x1b[K\n", "|"), {"\x1b[J", "_"}, {"\x1b[", "^"}, {"A\r", " "}})
        frame = replaced(frame, from, to);
    return frame;
}

TEST(FollowTerminal, DrawsOverItsLastFrameAndKeepsWhatIsOver)
{
    const std::pair<const char *, const char *> rows[] = {
        {"STAGE=DOWNLOADING", "Download   [..............]   0 %   0:00|"
                              "Downloading the new firmware. Nothing was changed so far.|"},
        {"PERCENTAGE=50", "^2 Download   [#######.......]  50 %   1:01  about 1:01 left|"
                          "Downloading the new firmware. Nothing was changed so far.|_"},
        {"STAGE=WRITING", "^2 Download   [#######.......]  50 %   2:02|"
                          "Write      [..............]   0 %   0:00|"
                          "Writing the new firmware. Do not switch the device off.|_"},
        {"STAGE=VERIFYING", "^2 Write      [..............]   0 %   1:01|"
                            "Verify     [..............]   0 %   0:00|"
                            "Reading the new firmware back. Do not switch the device|off.|_"},
        {"STAGE=WRITING", "^3 Write      [..............]   0 %   0:00|"
                          "Attempt 2 of 3. Writing the new firmware. Do not switch the|"
                          "device off.|_"},
        {"STAGE=VERIFYING", "^3 Write      [..............]   0 %   1:01|"
                            "Verify     [..............]   0 %   0:00|"
                            "Attempt 2 of 3. Reading the new firmware back. Do not|"
                            "switch the device off.|_"},
        {"STAGE=DONE", "^3 Verify     [..............]   0 %   1:01|Done|"
                       "The new firmware is written. Restart the device if it does|"
                       "not restart by itself.|_"},
        {"PERCENTAGE=0", ""},
    };
    shown_run run;
    run.screen.redraws = true;
    run.screen.width = 60;
    int64_t now_ms = 0;
    for (const auto &[word, frame] : rows)
        EXPECT_EQ(drawn(run.take(word, now_ms += 61'000)), frame) << word;
}

TEST(FollowTerminal, KeepsFramesWithinEveryWidth)
{
    for (int width = 2; width < 120; width++) {
        shown_run run;
        run.screen.redraws = true;
        run.screen.width = width;
        for (const char *word : {"PERCENTAGE=3", "STAGE=WRITING", "PERCENTAGE=100"}) {
            std::string frame = replaced(run.take(word, 61'000), "\r", "");
            for (size_t at = 0; (at = frame.find('\x1b')) != std::string::npos;)
                frame.erase(at, frame.find_first_of("AKJm", at) + 1 - at);
            std::istringstream lines(frame);
            int count = 0;
            for (std::string line; std::getline(lines, line); count++)
                EXPECT_LT(static_cast<int>(line.size()), std::min(width, 100)) << line;
            EXPECT_EQ(run.screen.drawn_lines, count);
        }
    }
}

TEST(FollowTerminal, DrawsAndColoursWhereItMay)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_EQ(unlockpt(master), 0);
    const int fd = open(ptsname(master), O_RDWR | O_NOCTTY);
    const std::tuple<int, const char *, const char *, const char *, const char *> rows[] = {
        {fd, "xterm", "", "STAGE=DONE", "\033[1;32mDone\033[0m\033[K\n"},
        {fd, "xterm", "", "ERROR=INVALID URL", "\033[1;31mAddress refused\033[0m\033[K\n"},
        {fd, "xterm", "1", "STAGE=DONE", "Done\033[K\n"},
        {fd, "dumb", "", "STAGE=DONE", "Done\n"},
        {-1, "xterm", "", "STAGE=DONE", "Done\n"},
    };
    setenv("COLUMNS", "33", 1);
    for (const auto &[of, name, no_color, word, frame] : rows) {
        setenv("TERM", name, 1);
        setenv("NO_COLOR", no_color, 1);
        shown_run run;
        terminal_start(&run.screen, of);
        EXPECT_EQ(run.screen.width, 33);
        EXPECT_TRUE(run.take(word, 0).starts_with(frame)) << frame;
    }
    winsize size = {};
    size.ws_col = 44;
    ioctl(master, TIOCSWINSZ, &size);
    terminal screen;
    terminal_measure(&screen, fd);
    EXPECT_EQ(screen.width, 44);
    close(fd);
    close(master);
}

TEST(FollowTerminal, SaysPlainLinesOnceAndNoEscapes)
{
    shown_run run;
    std::string output;
    const auto take = [&](const std::string &word, int64_t now_ms) {
        output += run.take(word, now_ms);
        output += run.frame(now_ms);
    };
    take("STAGE=WRITING", 0);
    for (int percent = 1; percent <= 60; percent++)
        take("PERCENTAGE=" + std::to_string(percent), percent * 1001);
    take("", 95'000);
    take("STAGE=WRITING", 95'500);
    take("ERROR=\x1b[31m<b>\xc3\xa4\x7f", 96'000);
    EXPECT_EQ(output,
              "Writing the new firmware. Do not switch the device off.\n"
              "Write      [########..........................]  25 %   0:25  about 1:18 left\n"
              "Write      [#################.................]  50 %   0:50  about 0:53 left\n"
              "Writing the new firmware. Do not switch the device off. No word for 34 s. The\n"
              "flash may refuse a block, which is tried again and again, or the device may\n"
              "have been reset.\n"
              "Attempt 2 of 3. Writing the new firmware. Do not switch the device off.\n"
              "Write      [..................................]   0 %   0:00\n"
              "Upgrade failed: ?[31m<b>???\n"
              "The upgrade ended with an error that is not known here. Ask for support, with\n"
              "the text of the error.\n");
}

TEST(FollowReport, SaysAllOfAStateAndCarriesNoMarkupOfTheSender)
{
    const std::tuple<std::string, int64_t, std::string> rows[] = {
        {"STAGE=DOWNLOADING", 1000, R"("state":"downloading",)"},
        {"PERCENTAGE=40", 5560, R"("rest_seconds":6.8,)"},
        {"", 6560,
         R"({"format":1,"time":1700000006.560,"run":1,"state":"downloading","attempt":0,)"
         R"("percent":40,"overall":4,"steps":{"download":{"percent":40,"seconds":5.5}},)"
         R"("seconds":5.5,"rest_seconds":5.8,"silent_seconds":1.0,"active":true,)"
         R"("silent":false,"outcome":null,"exit_status":null,"error":null,"title":)"
         R"("Downloading","sentence":"Downloading the new firmware. Nothing was )"
         R"(changed so far.","advice":"","silence":"The server may be slow or gone, )"},
        {"", 95'000, R"("rest_seconds":null,"silent_seconds":89.4,"active":true,"silent":true,)"},
        {"", 336'000, R"("active":false,"silent":false,"outcome":"lost","exit_status":4,)"},
        {"STAGE=WRITING", 400'000, R"("active":true,"silent":false,"outcome":null,)"},
        {"STAGE=VERIFYING", 401'000,
         R"("steps":{"download":{"percent":40,"seconds":399.0},)"
         R"("write":{"percent":0,"seconds":1.0},"verify":{)"},
        {"", 431'000, R"("verify":{"percent":0,"seconds":30.0}},)"},
        {"ERROR=\"</script>\x1b\xff" + std::string(90, 'x'), 432'000,
         R"("active":false,"silent":false,"outcome":"failed","exit_status":2,)"
         R"("error":"\"</script>\u001b\ufffd)" +
             std::string(51, 'x') + R"(","title":"Upgrade failed",)"},
    };
    shown_run run;
    for (const auto &[word, now_ms, part] : rows) {
        run.take(word, now_ms);
        text_buffer report;
        append_report(&report, &run.state, {now_ms, 1'700'000'000'000 + now_ms});
        EXPECT_NE(report.view().find(part), std::string::npos) << part << "\n" << report.view();
    }
}

} // namespace
