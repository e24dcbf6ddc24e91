// SPDX-License-Identifier: GPL-2.0-or-later
//
// A simulated platform: flash partitions, GPIO, clock, status receivers, network, script, faults,
// a unit each in this folder. This one starts and ends it.
//
// One core, two faces. libsimdev_preload.so puts it under the unmodified program, simdev_wrap
// links it into a program or a test with -Wl,--wrap, sanitizers included (face.cpp). Both hand the
// calls that they take over to the sim_ functions of the units, each of which has the contract of
// the call that it is named for.
//
// Fixed device paths lead into the device folder (files.h). Everything else, and everything before
// sim_start, goes to the real system untouched, but for the network (network.h).
//
// In fast mode nothing is slept, and a wait with no answer within the grace time ends at once and
// is counted in full (clock.h, peer.h).
//
// Nothing here allocates memory or uses stdio: the program under test may be short of both, and a
// child after vfork passes through.
#pragma once

#include <cstddef>

#include "tools/simdev/core/log.h"
#include "tools/simdev/core/settings.h"

/// Starts the simulation: clocks and all counters at 0; `argument` is handed to `sink`. 0, or -1
/// with a line in `error` (at least 256 bytes) for a setting that cannot be used. Texts are copied.
int sim_start(const sim_settings &settings, sim_sink sink, void *argument, char *error,
              size_t error_size);

/// The same as the environment says, with a sink that writes each operation as it stands in memory
/// (operation.h) to the pipe. Does nothing without a folder in it; ends the program with 125 when
/// it is not usable.
void sim_start_from_environment();

/// Ends it: from now on every call goes to the real system again.
void sim_stop();
