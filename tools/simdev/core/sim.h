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
#include <cstdint>

#include "tools/simdev/core/log.h"

struct sim_config {
    const char *folder = nullptr; ///< the device folder
    bool fast = false;            ///< count sleeps and unanswered waits instead of waiting
    int grace_ms = 1000;          ///< in fast mode: how long a peer may really take to answer
    const char *ports = "";       ///< as network_start has it
    const char *hosts = "";       ///< the same
    bool real_network = false;    ///< the same
    const char *faults = "";      ///< texts of faults, separated by ";" (faults.h)
    const char *receivers = "";   ///< "1", "2" or "12": those that somebody else is
    uint64_t seed = 0;            ///< for what a fault leaves open
    int64_t script_us = 0;        ///< virtual duration of the network-stop script
    sim_sink sink = nullptr;      ///< told every operation
    void *sink_argument = nullptr;
};

/// Starts the simulation: clocks and all counters at 0. 0, or -1 with a line in `error` (at least
/// 256 bytes) for a setting that cannot be used. Texts are copied.
int sim_start(const sim_config *config, char *error, size_t error_size);

/// Ends it: from now on every call goes to the real system again.
void sim_stop();
