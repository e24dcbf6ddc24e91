// SPDX-License-Identifier: GPL-2.0-or-later
//
// What is shown while something lasts: a bar that is drawn over itself on a terminal, else a line
// now and then.
#pragma once

#include <string>

namespace simdev {

class progress {
public:
    /// Draws on standard error. `quiet` shows nothing.
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
    bool terminal_;
    bool drawn_ = false;
    std::string what_;
    int percent_ = -1;
};

} // namespace simdev
