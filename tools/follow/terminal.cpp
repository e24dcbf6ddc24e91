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

namespace follow {

namespace {

constexpr int default_width = 80;
constexpr int least_width = 2;
constexpr int widest = 100; // sentences in longer lines are hard to read
constexpr int bar_limit = 40;
constexpr int least_bar = 8;
constexpr int width_for_rest = 55; // of the line, before the estimate is left out
constexpr size_t width_of_rest = 19;
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

// Minutes, at least so wide, and seconds.
void append_time(text_buffer *to, int width, int64_t milliseconds)
{
    const int64_t seconds = milliseconds / 1000;
    append_format(to, "%*" PRId64 ":%02d", width, seconds / 60, static_cast<int>(seconds % 60));
}

void append_line_end(text_buffer *to, const terminal *screen)
{
    append(to, screen->redraws ? "\033[K\n" : "\n");
}

// Title, bar, percentage and `tail`, as much of them as the width has room for.
void append_line(text_buffer *to, const terminal *screen, const char *title, int percent,
                 std::string_view tail)
{
    const size_t begin = to->size;
    const int room = usable(screen) - 10 - 6; // beside title and percentage
    if (static_cast<int>(tail.size()) > room)
        tail = "";
    const int bar = std::min(bar_limit, room - static_cast<int>(tail.size()) - 3);
    append_format(to, "%-10s", title);
    if (bar >= least_bar) {
        append(to, " [");
        for (int column = 0; column < bar; column++)
            append(to, column < percent * bar / 100 ? "#" : ".");
        append(to, "]");
    }
    append_format(to, " %3d %%", percent);
    append(to, tail);
    to->size = std::min(to->size, begin + static_cast<size_t>(usable(screen)));
    while (to->size > 0 && to->data[to->size - 1] == ' ')
        to->size--;
}

void append_step_line(text_buffer *to, const terminal *screen, const tracker *state, step which,
                      int64_t now_ms)
{
    const int64_t rest_ms = tracker_rest_ms(state, now_ms);
    text_buffer tail;
    append(&tail, "  ");
    append_time(&tail, 2, tracker_step_ms(state, which, now_ms));
    if (usable(screen) >= width_for_rest) {
        const size_t end = tail.size + width_of_rest; // always, so that the bar does not jump
        if (tracker_active(state) && which == tracker_step(state) && rest_ms >= 0) {
            append(&tail, "  about ");
            append_time(&tail, 1, rest_ms + 999);
            append(&tail, " left");
        }
        while (tail.size < end)
            append(&tail, " ");
    }
    append_line(to, screen, step_titles[which], state->steps[which].percent, tail.view());
}

// The sentences in lines of the width; returns how many lines were ended.
int append_wrapped_sentences(text_buffer *to, const terminal *screen, const tracker *state,
                             int64_t now_ms)
{
    text_buffer sentences;
    append_sentences(&sentences, state, now_ms);
    std::string_view text = sentences.view();
    const auto width = static_cast<size_t>(usable(screen));
    int lines = 0;
    while (!text.empty() && lines < sentence_limit) {
        size_t size = std::min(width, text.size());
        if (size < text.size())
            while (size > 0 && text[size] != ' ')
                size--;
        if (size == 0)
            size = std::min(width, text.size()); // one long word
        append(to, {text.data(), size});
        append_line_end(to, screen);
        lines++;
        text.remove_prefix(size);
        while (!text.empty() && text.front() == ' ')
            text.remove_prefix(1);
    }
    return lines;
}

// Lines of the steps that are over and were not kept yet.
void append_finished_steps(text_buffer *to, terminal *screen, const tracker *state, int64_t now_ms)
{
    const auto last = static_cast<size_t>(tracker_step(state));
    const size_t end = tracker_outcome(state) == outcome_none ? last : size_t{step_count};
    for (; last != step_count && screen->steps_kept < end; screen->steps_kept++)
        if (state->steps[screen->steps_kept].seen) {
            append_step_line(to, screen, state, static_cast<step>(screen->steps_kept), now_ms);
            append_line_end(to, screen);
        }
}

void append_color(text_buffer *to, const terminal *screen, const char *color)
{
    if (screen->colors)
        append(to, color);
}

void append_outcome(text_buffer *to, const terminal *screen, const tracker *state, int64_t now_ms)
{
    const bool good = tracker_outcome(state) == outcome_done;
    append_color(to, screen, good ? green : red);
    append(to, texts[state->now].title);
    if (state->now == phase_other_error) {
        // The sender's own words: printable ASCII alone reaches the terminal.
        append(to, ": ");
        for (const char *at = state->error.data(); *at != '\0'; at++) {
            const char shown = *at >= ' ' && *at <= '~' ? *at : '?';
            append(to, {&shown, 1});
        }
    }
    append_color(to, screen, usual);
    append_line_end(to, screen);
    append_wrapped_sentences(to, screen, state, now_ms);
}

void append_live(text_buffer *to, terminal *screen, const tracker *state, int64_t now_ms)
{
    const step which = tracker_step(state);
    if (which != step_count) {
        append_step_line(to, screen, state, which, now_ms);
    } else {
        append_color(to, screen, bold);
        const std::string_view title = texts[state->now].title;
        append(to, title.substr(0, static_cast<size_t>(usable(screen))));
        append_color(to, screen, usual);
    }
    append_line_end(to, screen);
    screen->drawn_lines = 1 + append_wrapped_sentences(to, screen, state, now_ms);
}

// Without redrawing: what a person learns anew, once.
void append_plain(text_buffer *to, terminal *screen, const tracker *state, int64_t now_ms)
{
    const step which = tracker_step(state);
    const int quarter = which == step_count ? 0 : state->steps[which].percent / plain_step_percent;
    const bool silent = state->silent && tracker_active(state);
    if (state->now != screen->shown || silent != screen->shown_silent)
        append_wrapped_sentences(to, screen, state, now_ms);
    else if (quarter != screen->shown_quarter && quarter * plain_step_percent < 100) {
        append_step_line(to, screen, state, which, now_ms);
        append_line_end(to, screen);
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

void append_frame(text_buffer *to, terminal *screen, const tracker *state, int64_t now_ms)
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
        append_format(to, "\033[%dA\r", screen->drawn_lines);
    screen->drawn_lines = 0;
    append_finished_steps(to, screen, state, now_ms);
    if (ends)
        append_outcome(to, screen, state, now_ms);
    else if (screen->redraws)
        append_live(to, screen, state, now_ms);
    else
        append_plain(to, screen, state, now_ms);
    if (over)
        append(to, erase_below);
    screen->shown = state->now;
    screen->ended = ends;
}

void append_bar_line(text_buffer *to, const terminal *screen, const char *title, int percent)
{
    if (screen->redraws)
        append(to, "\r");
    append_line(to, screen, title, std::clamp(percent, 0, 100), "");
    append(to, screen->redraws ? erase_line : "\n");
}

} // namespace follow
