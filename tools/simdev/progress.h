// SPDX-License-Identifier: GPL-2.0-or-later
//
// What is shown on standard error while something lasts, as upgrade-follow shows it: drawn over
// itself on a terminal, else in plain lines.
#pragma once

#include <string>

#include "tools/follow/terminal.h"
#include "tools/simdev/core/operation.h"

namespace simdev {

/// The stages of a run, as its status datagrams tell them.
class stage_progress {
public:
    /// `quiet` shows nothing.
    explicit stage_progress(bool quiet);

    /// The run's next operation.
    void take(const sim_operation &operation);

    /// The run has ended: shows where it stood.
    void finish();

private:
    void show(bool at_once);

    bool quiet_;
    int64_t shown_us_ = 0;
    follow::phase shown_ = follow::phase_count;
    follow::tracker state_ = {};
    follow::terminal screen_ = {};
};

/// Other work that has a percentage.
class progress {
public:
    /// `quiet` shows nothing.
    explicit progress(bool quiet);
    ~progress();
    progress(const progress &) = delete;
    progress &operator=(const progress &) = delete;

    /// `percent` of `what` is done. Plain lines come for each new `what` and each quarter.
    void show(const std::string &what, int percent);

    /// Ends the bar, so that other lines can follow.
    void finish();

private:
    bool quiet_;
    bool drawn_ = false;
    follow::terminal screen_ = {};
    std::string what_;
    int percent_ = -1;
};

} // namespace simdev
