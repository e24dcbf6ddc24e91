// SPDX-License-Identifier: GPL-2.0-or-later
//
// How an upgrade is shown: on a terminal, in plain lines, as JSON.
#include <cstdlib>
#include <fcntl.h>
#include <regex>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tools/follow/report.h"
#include "tools/follow/terminal.h"

namespace {

using namespace follow;

void expect_part(const std::string &text, const std::string &part)
{
    EXPECT_NE(text.find(part), std::string::npos) << part << "\nis not in\n" << text;
}

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
    std::string report(int64_t now_ms, int64_t clock_ms = 0) const
    {
        text_buffer text;
        append_report(&text, &state, {now_ms, clock_ms});
        return std::string(text.view());
    }
};

/// A frame in which "|" ends a line, "^2" goes up by two lines and "_" erases what is below.
std::string drawn(std::string frame)
{
    for (const auto &[from, to] :
         {std::pair(R"(\x1b\[K\n)", "|"), {R"(\x1b\[(\d)A\r)", "^$1 "}, {R"(\x1b\[J)", "_"}})
        frame = std::regex_replace(frame, std::regex(from), to);
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
    const std::regex escapes(R"(\x1b\[\d*[AKJm]|\r)");
    for (int width = 2; width < 120; width++) {
        shown_run run;
        run.screen.redraws = true;
        run.screen.width = width;
        for (const char *word : {"PERCENTAGE=3", "STAGE=WRITING", "PERCENTAGE=100"}) {
            std::istringstream lines(std::regex_replace(run.take(word, 61'000), escapes, ""));
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
    const auto screen = [](int of, const char *name, const char *no_color) {
        setenv("TERM", name, 1);
        setenv("NO_COLOR", no_color, 1);
        setenv("COLUMNS", "33", 1);
        shown_run run;
        terminal_start(&run.screen, of);
        return run;
    };
    expect_part(screen(fd, "xterm", "").take("STAGE=DONE", 0), "\033[1;32mDone\033[0m");
    expect_part(screen(fd, "xterm", "").take("ERROR=INVALID URL", 0), "\033[1;31mAddress refused");
    EXPECT_TRUE(screen(fd, "xterm", "1").take("STAGE=DONE", 0).starts_with("Done\033[K"));
    for (const int of : {fd, -1})
        EXPECT_TRUE(
            screen(of, of < 0 ? "xterm" : "dumb", "").take("STAGE=DONE", 0).starts_with("Done\n"));
    EXPECT_EQ(screen(fd, "xterm", "").screen.width, 33);
    winsize size = {};
    size.ws_col = 44;
    ioctl(master, TIOCSWINSZ, &size);
    EXPECT_EQ(screen(fd, "xterm", "").screen.width, 44);
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
    shown_run run;
    run.take("STAGE=DOWNLOADING", 1000);
    run.take("PERCENTAGE=40", 5560);
    expect_part(run.report(6560, 1'700'000'000'007),
                R"({"format":1,"time":1700000000.007,"run":1,"state":"downloading","attempt":0,)"
                R"("percent":40,"overall":4,"steps":{"download":{"percent":40,"seconds":5.5}},)"
                R"("seconds":5.5,"rest_seconds":5.8,"silent_seconds":1.0,"active":true,)"
                R"("silent":false,"outcome":null,"exit_status":null,"error":null,)");
    run.take("", 95'000);
    expect_part(run.report(95'000),
                R"("rest_seconds":null,"silent_seconds":89.4,"active":true,"silent":true,)");
    run.take("", 336'000);
    expect_part(run.report(337'000), R"("active":false,"silent":false,"outcome":"lost",)");
    run.take("STAGE=WRITING", 96'000);
    run.take("STAGE=VERIFYING", 97'000);
    run.take("", 127'000);
    run.take("ERROR=\"</script>\x1b\xff" + std::string(90, 'x'), 128'000);
    run.state.run = 4'000'000'000;
    const std::string text = run.report(1'000'000'000'000, 4'000'000'000'000);
    expect_part(text, R"("write":{"percent":0,"seconds":1.0},"verify":{"percent":0,"seconds":31.)");
    expect_part(text, R"("active":false,"silent":false,"outcome":"failed","exit_status":2,)");
    expect_part(text, R"("error":"\"</script>\u001b\ufffd)" + std::string(51, 'x') + "\",\"title");
    EXPECT_EQ(text.find_first_of("\x1b\xff\n"), std::string::npos);
}

} // namespace
