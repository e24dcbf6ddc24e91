// SPDX-License-Identifier: GPL-2.0-or-later
//
// An upgrade on a terminal: a line for each stage with bar, percentage, times and what the person
// should know below it, drawn over itself; the lines of stages that are over, and the outcome,
// stay. Where there is no terminal: plain lines, without escapes. Writes into the caller's text.
#pragma once

#include "tools/follow/json.h"
#include "tools/follow/tracker.h"

namespace follow {

struct terminal {
    bool redraws; ///< may move the cursor
    bool colors;
    int width;       ///< of the terminal, in characters
    int drawn_lines; ///< above the cursor that the next frame replaces
    unsigned run;    ///< what was shown of which run and attempt
    int attempt;
    size_t steps_kept; ///< of this attempt: their lines stay
    phase shown;
    int shown_quarter; ///< plain lines: of the step's percentage
    bool shown_silent;
    bool ended; ///< the outcome is on the screen
};

/// What `fd` is: no terminal, or one by TERM, NO_COLOR and COLUMNS of the environment.
void terminal_start(terminal *screen, int fd);

/// Asks for the width again; call it before a frame.
void terminal_measure(terminal *screen, int fd);

/// Appends what has to be written so that the state is shown. Appends nothing where plain lines
/// have nothing new. A frame is written whole or not at all, before the next one is made.
void append_frame(text_buffer *to, terminal *screen, const tracker *state, int64_t now_ms);

/// Appends one line with a bar, as for a stage; for other work that has a percentage.
void append_bar_line(text_buffer *to, const terminal *screen, const char *title, int percent);

} // namespace follow
