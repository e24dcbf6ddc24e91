// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/terminal.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tools/follow/report.h"
#include "tools/follow/texts.h"

namespace follow {

namespace {

constexpr int default_width = 80;
constexpr int least_width = 2;
constexpr int widest = 100; // sentences in longer lines are hard to read
constexpr int bar_limit = 40;
constexpr int least_bar = 8;
constexpr int width_for_rest = 55; // of the line, before the estimate is left out
constexpr int sentence_limit = 10; // lines
constexpr int plain_step_percent = 25;
constexpr char erase_line[] = "\033[K";
constexpr char erase_below[] = "\033[J";
constexpr char bold[] = "\033[1m";
constexpr char green[] = "\033[1;32m";
constexpr char red[] = "\033[1;31m";
constexpr char usual[] = "\033[0m";

// The last column stays free: a character there may or may not begin the next line.
int usable(const terminal *screen)
{
    return std::clamp(screen->width, least_width, widest) - 1;
}

struct clock_text {
    char text[24];
};

// Minutes and seconds.
clock_text format_time(int64_t milliseconds)
{
    clock_text result = {};
    const int64_t seconds = milliseconds / 1000;
    snprintf(result.text, sizeof result.text, "%" PRId64 ":%02d", seconds / 60,
             static_cast<int>(seconds % 60));
    return result;
}

void append_line_end(text_buffer *buffer, const terminal *screen)
{
    append(buffer, screen->redraws ? "\033[K\n" : "\n");
}

// Title, bar, percentage and `tail`, as much of them as the width has room for.
void append_line(text_buffer *buffer, const terminal *screen, const char *title, int percent,
                 const char *tail)
{
    const size_t begin = buffer->size;
    const int room = usable(screen) - 10 - 6; // beside title and percentage
    if (static_cast<int>(strlen(tail)) > room)
        tail = "";
    const int bar = std::min(bar_limit, room - static_cast<int>(strlen(tail)) - 3);
    append_format(buffer, "%-10s", title);
    if (bar >= least_bar) {
        const auto filled = static_cast<size_t>(percent * bar / 100);
        constexpr char full[] = "########################################";
        constexpr char empty[] = "........................................";
        append(buffer, " [");
        append(buffer, {full, filled});
        append(buffer, {empty, static_cast<size_t>(bar) - filled});
        append(buffer, "]");
    }
    append_format(buffer, " %3d %%%s", percent, tail);
    buffer->size = std::min(buffer->size, begin + static_cast<size_t>(usable(screen)));
    while (buffer->size > 0 && buffer->data[buffer->size - 1] == ' ')
        buffer->size--;
}

void append_step_line(text_buffer *buffer, const terminal *screen, const tracker *state, step which,
                      int64_t now_ms)
{
    const int64_t rest_ms = tracker_rest_ms(state, now_ms);
    const bool lasts = tracker_active(state) && which == tracker_step(state) && rest_ms >= 0;
    char rest[40] = "";
    if (lasts)
        snprintf(rest, sizeof rest, "about %s left", format_time(rest_ms + 999).text);
    char tail[80];
    // Always as wide, so that the bar does not jump.
    const clock_text taken = format_time(tracker_step_ms(state, which, now_ms));
    if (usable(screen) >= width_for_rest)
        snprintf(tail, sizeof tail, "  %5s  %-17s", taken.text, rest);
    else
        snprintf(tail, sizeof tail, "  %5s", taken.text);
    append_line(buffer, screen, step_titles[which], state->steps[which].percent, tail);
}

// The words of `text` in lines of the width; returns how many lines were ended.
int append_wrapped(text_buffer *buffer, const terminal *screen, std::string_view text)
{
    const auto width = static_cast<size_t>(usable(screen));
    int lines = 0;
    while (!text.empty() && lines < sentence_limit) {
        size_t size = std::min(width, text.size());
        if (size < text.size())
            while (size > 0 && text[size] != ' ')
                size--;
        if (size == 0)
            size = std::min(width, text.size()); // one long word
        append(buffer, {text.data(), size});
        append_line_end(buffer, screen);
        lines++;
        text.remove_prefix(size);
        while (!text.empty() && text.front() == ' ')
            text.remove_prefix(1);
    }
    return lines;
}

int append_wrapped_sentences(text_buffer *buffer, const terminal *screen, const tracker *state,
                             int64_t now_ms)
{
    char sentences[1024];
    text_buffer text = {sentences, sizeof sentences, 0, false};
    append_sentences(&text, state, now_ms);
    return append_wrapped(buffer, screen, {text.data, text.size});
}

// Lines of the steps that are over and were not kept yet.
void append_finished_steps(text_buffer *buffer, terminal *screen, const tracker *state,
                           int64_t now_ms)
{
    const auto last = static_cast<size_t>(tracker_step(state));
    const size_t end = tracker_outcome(state) == outcome_none ? last : size_t{step_count};
    for (; last != step_count && screen->steps_kept < end; screen->steps_kept++)
        if (state->steps[screen->steps_kept].seen) {
            append_step_line(buffer, screen, state, static_cast<step>(screen->steps_kept), now_ms);
            append_line_end(buffer, screen);
        }
}

void append_color(text_buffer *buffer, const terminal *screen, const char *color)
{
    if (screen->colors)
        append(buffer, color);
}

void append_outcome(text_buffer *buffer, const terminal *screen, const tracker *state,
                    int64_t now_ms)
{
    const bool good = tracker_outcome(state) == outcome_done;
    append_color(buffer, screen, good ? green : red);
    append(buffer, texts[state->now].title);
    if (state->now == phase_other_error) {
        // The sender's own words: printable ASCII alone reaches the terminal.
        append(buffer, ": ");
        for (const char *at = state->error.data(); *at != '\0'; at++) {
            const char shown = *at >= ' ' && *at <= '~' ? *at : '?';
            append(buffer, {&shown, 1});
        }
    }
    append_color(buffer, screen, usual);
    append_line_end(buffer, screen);
    append_wrapped_sentences(buffer, screen, state, now_ms);
}

void append_live(text_buffer *buffer, terminal *screen, const tracker *state, int64_t now_ms)
{
    const step which = tracker_step(state);
    if (which != step_count) {
        append_step_line(buffer, screen, state, which, now_ms);
    } else {
        append_color(buffer, screen, bold);
        const std::string_view title = texts[state->now].title;
        append(buffer, title.substr(0, static_cast<size_t>(usable(screen))));
        append_color(buffer, screen, usual);
    }
    append_line_end(buffer, screen);
    screen->drawn_lines = 1 + append_wrapped_sentences(buffer, screen, state, now_ms);
}

// Without redrawing: what a person learns anew, once.
void append_plain(text_buffer *buffer, terminal *screen, const tracker *state, int64_t now_ms)
{
    const step which = tracker_step(state);
    const int quarter = which == step_count ? 0 : state->steps[which].percent / plain_step_percent;
    const bool silent = state->silent && tracker_active(state);
    if (state->now != screen->shown || silent != screen->shown_silent)
        append_wrapped_sentences(buffer, screen, state, now_ms);
    else if (quarter != screen->shown_quarter && quarter * plain_step_percent < 100) {
        append_step_line(buffer, screen, state, which, now_ms);
        append_line_end(buffer, screen);
    }
    screen->shown_quarter = quarter;
    screen->shown_silent = silent;
}

} // namespace

void terminal_start(terminal *screen, int fd)
{
    const char *name = getenv("TERM");
    const char *no_color = getenv("NO_COLOR");
    *screen = {};
    screen->shown = phase_count;
    screen->redraws =
        isatty(fd) != 0 && name != nullptr && name[0] != '\0' && strcmp(name, "dumb") != 0;
    screen->colors = screen->redraws && (no_color == nullptr || no_color[0] == '\0');
    terminal_measure(screen, fd);
}

void terminal_measure(terminal *screen, int fd)
{
    winsize size = {};
    const char *columns = getenv("COLUMNS");
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        screen->width = size.ws_col;
    else
        screen->width = columns == nullptr ? 0 : atoi(columns);
    if (screen->width <= 0)
        screen->width = default_width;
}

void append_frame(text_buffer *buffer, terminal *screen, const tracker *state, int64_t now_ms)
{
    const bool ends = tracker_outcome(state) != outcome_none;
    if (screen->run != state->run || screen->attempt > state->attempt) {
        screen->steps_kept = 0;
        screen->ended = false;
        screen->shown = phase_count;
    } else if (screen->attempt < state->attempt) {
        screen->steps_kept = std::min(screen->steps_kept, size_t{step_write});
        screen->shown = phase_count;
    }
    screen->ended = screen->ended && ends && screen->shown == state->now;
    screen->run = state->run;
    screen->attempt = state->attempt;
    if (screen->ended)
        return;
    const bool over = screen->drawn_lines > 0;
    if (over)
        append_format(buffer, "\033[%dA\r", screen->drawn_lines);
    screen->drawn_lines = 0;
    append_finished_steps(buffer, screen, state, now_ms);
    if (ends)
        append_outcome(buffer, screen, state, now_ms);
    else if (screen->redraws)
        append_live(buffer, screen, state, now_ms);
    else
        append_plain(buffer, screen, state, now_ms);
    if (over)
        append(buffer, erase_below);
    screen->shown = state->now;
    screen->ended = ends;
}

void append_bar_line(text_buffer *buffer, const terminal *screen, const char *title, int percent)
{
    if (screen->redraws)
        append(buffer, "\r");
    append_line(buffer, screen, title, std::clamp(percent, 0, 100), "");
    append(buffer, screen->redraws ? erase_line : "\n");
}

} // namespace follow
