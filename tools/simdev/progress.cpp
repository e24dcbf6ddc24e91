// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/progress.h"

#include <cstdio>
#include <string_view>
#include <unistd.h>

#include "platform/device.h"
#include "tools/simdev/work.h"

namespace simdev {

namespace {

constexpr int plain_step_percent = 25;
constexpr int64_t draw_interval_us = 250'000;

/// Shows what `append` appends for a terminal of the width of now.
template<typename Append> void draw(follow::terminal &screen, Append append)
{
    follow::text_buffer frame;
    follow::terminal_measure(&screen, STDERR_FILENO);
    append(&frame);
    fwrite(frame.data.data(), 1, frame.size, stderr);
    fflush(stderr);
}

} // namespace

stage_progress::stage_progress(bool quiet) : quiet_(quiet)
{
    follow::tracker_start(&state_);
    follow::terminal_start(&screen_, STDERR_FILENO);
}

void stage_progress::take(const sim_operation &operation)
{
    if (quiet_)
        return;
    const bool word =
        operation.op == op_datagram && operation.target == std::string_view(status_receivers[0]);
    if (word)
        follow::tracker_take(&state_, operation.text_view(), steady_us() / 1000);
    if (word || screen_.redraws || operation.op == op_start)
        show(state_.now != shown_ || !screen_.redraws);
}

void stage_progress::finish()
{
    if (!quiet_)
        show(true);
}

void stage_progress::show(bool at_once)
{
    const int64_t time_us = steady_us();
    if (!at_once && time_us - shown_us_ < draw_interval_us)
        return;
    shown_us_ = time_us;
    shown_ = state_.now;
    draw(screen_, [&](follow::text_buffer *frame) {
        follow::append_frame(frame, &screen_, &state_, time_us / 1000);
    });
}

progress::progress(bool quiet) : quiet_(quiet)
{
    follow::terminal_start(&screen_, STDERR_FILENO);
}

progress::~progress()
{
    finish();
}

void progress::show(const std::string &what, int percent)
{
    if (quiet_ || (what == what_ && percent == percent_))
        return;
    const bool step =
        what != what_ || percent / plain_step_percent != percent_ / plain_step_percent;
    what_ = what;
    percent_ = percent;
    if (!screen_.redraws && !step)
        return;
    draw(screen_, [&](follow::text_buffer *line) {
        follow::append_bar_line(line, &screen_, what.c_str(), percent);
    });
    drawn_ = screen_.redraws;
}

void progress::finish()
{
    if (drawn_)
        fprintf(stderr, "\n");
    drawn_ = false;
}

} // namespace simdev
