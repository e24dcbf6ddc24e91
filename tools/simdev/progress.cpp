// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace simdev {

namespace {

constexpr int bar_width = 40;
constexpr int plain_step_percent = 25;

} // namespace

progress::progress(bool quiet) : quiet_(quiet), terminal_(isatty(STDERR_FILENO) != 0) {}

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
    if (terminal_) {
        const auto filled = static_cast<size_t>(std::clamp(percent, 0, 100) * bar_width / 100);
        const std::string bar = std::string(filled, '#') + std::string(bar_width - filled, '.');
        fprintf(stderr, "\r%-24s [%s] %3d %%\033[K", what.c_str(), bar.c_str(), percent);
        drawn_ = true;
    } else if (step) {
        fprintf(stderr, "%-24s %3d %%\n", what.c_str(), percent);
    }
    fflush(stderr);
}

void progress::finish()
{
    if (drawn_)
        fprintf(stderr, "\n");
    drawn_ = false;
}

} // namespace simdev
