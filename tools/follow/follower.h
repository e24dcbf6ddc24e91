// SPDX-License-Identifier: GPL-2.0-or-later
//
// One follower: the tracker and the outputs that it feeds. Where the datagrams come from is the
// caller's: the socket or a recording.
#pragma once

#include <sys/types.h>

#include "tools/follow/options.h"
#include "tools/follow/output.h"
#include "tools/follow/recording.h"
#include "tools/follow/terminal.h"
#include "tools/follow/web.h"

namespace follow {

struct follower {
    const follow_options *options;
    tracker state;
    terminal screen;
    output out;
    recording kept;
    web_server *web;
    phase shown; ///< the phase that the outputs have, and of which run
    unsigned shown_run;
    bool json_behind;  ///< a line is due for which there was no room
    bool state_behind; ///< changed since it was last written
    bool state_complained;
    int64_t state_ms;     ///< when file and page were last renewed
    int64_t frame_ms;     ///< when the terminal was last drawn
    pid_t command;        ///< that runs, or 0
    unsigned outcome_run; ///< whose present outcome was acted on; 0: none is there
    int first_status;     ///< exit status of the first outcome; -1: none yet
};

/// Opens what the options ask for. What cannot be opened, but for the recording to write, is
/// reported, and following goes on without it. False when there is no use in going on.
bool follower_start(follower *self, const follow_options *options, moment now);

/// A datagram of `size` bytes, of which `data` holds the first datagram_room.
void follower_take(follower *self, const char *data, size_t size, moment now);

/// Brings the outputs up to date. Call it when the datagrams that have come are taken. With `wait`
/// it waits for whoever reads standard output.
void follower_update(follower *self, moment now, bool wait);

/// When follower_update is due again at the latest; may be never_ms.
int64_t follower_next_ms(const follower *self);

/// Whether an upgrade has ended since follower_update acted on an outcome: then it is to be called
/// before what comes next begins another.
bool follower_has_outcome(const follower *self);

/// Looks whether the command has ended.
void follower_reap(follower *self);

/// Ends the outputs. `stopped`: by a signal.
void follower_stop(follower *self, bool stopped, moment now);

} // namespace follow
