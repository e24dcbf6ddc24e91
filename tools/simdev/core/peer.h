// SPDX-License-Identifier: GPL-2.0-or-later
//
// The other end of a connection as far as the server's faults and waits for it go.
#pragma once

#include "tools/simdev/core/descriptors.h"
#include "tools/simdev/core/faults.h"

constexpr int64_t never_us = INT64_MAX;

/// `grace_us`: in fast mode, how long a peer may really take to answer.
void peer_start(int64_t grace_us);

/// What a server's fault leaves of a connection.
struct peer {
    int64_t bytes;      ///< that can still be received in one call
    int64_t silence_us; ///< until then; never_us: for ever
    bool ended;
    const sim_fault *fault; ///< null: none
};
peer look_at_peer(const slot *connection);

/// After something was received: when the next drip comes.
void note_drip(slot *connection);

/// Counts and logs a wait on `connection` (or null) that was in vain; `really` waits it as well.
/// Leaves errno alone.
void wait_in_vain(const slot *connection, int64_t microseconds, bool really,
                  const sim_fault *fault);

/// Sits out the peer's silence in a call that waits `timeout_us` (0: for ever). False when that is
/// not enough; the time is counted then.
bool outlast(const slot *connection, const peer *seen, int64_t timeout_us);

/// Of the descriptors that a wait is for, the one that is silent the shortest time.
struct waited_for {
    const slot *connection = nullptr; ///< the first; null: none that is followed
    peer quiet = {0, never_us, false, nullptr};
    void add(const slot *candidate);
};

/// Whether the real wait of `timeout_us` (-1: without end) is to follow; if not, its time has
/// passed.
bool sit_out_silence(const waited_for *waited, int64_t timeout_us);

/// How long a wait of `timeout_us` (-1: without end) really lasts at the most: no longer than the
/// watchdog lets it.
int64_t real_wait_us(int64_t timeout_us);

/// Whether a call on `fd` with `flags` returns at once.
bool does_not_block(int fd, int flags);
