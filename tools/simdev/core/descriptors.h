// SPDX-License-Identifier: GPL-2.0-or-later
//
// What each of the program's descriptors stands for on the device.
#pragma once

#include <cstdint>

#include "tools/simdev/core/operation.h"

enum slot_kind : uint8_t {
    slot_none, ///< not ours: every call goes to the real system
    slot_partition,
    slot_gpio,
    slot_file, ///< a mapped file; only its open and close are of interest
    slot_tcp,
    slot_udp,
    slot_unix,
};

struct slot {
    slot_kind kind;
    int8_t partition;                           ///< 0 to 9, -1 for a name that is no digit
    char target[sizeof(sim_operation::target)]; ///< as it is logged; empty: not known yet
    int64_t size;                               ///< of a partition
    int64_t received;           ///< bytes on this connection, for the server's faults
    int64_t receive_timeout_us; ///< 0: none
    int64_t send_timeout_us;
    int64_t drips_at_us; ///< virtual; nothing can be received before
};

/// Forgets all descriptors.
void descriptors_start();

/// The slot of a descriptor that is followed, or null.
slot *followed(int fd);

/// Follows `fd` from now on, or no longer with slot_none; its number may have been another's
/// before. The slot, empty but for its kind; null where `fd` is no number that can be followed.
slot *follow(int fd, slot_kind kind);
