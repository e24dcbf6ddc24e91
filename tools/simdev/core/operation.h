// SPDX-License-Identifier: GPL-2.0-or-later
//
// One thing that the program did to its platform, as a record of fixed size: what the sink is told,
// and, as it stands in memory, what goes through the pipe to simdev. The layout is the same on all
// the architectures that the program is emulated on.
#pragma once

#include <cstdint>
#include <string_view>
#include <type_traits>

enum sim_op : uint8_t {
    op_start,
    op_open,
    op_seek,
    op_write,
    op_read,
    op_close,
    op_sync,
    op_sleep,
    op_kick,
    op_datagram,
    op_resolve,
    op_socket,
    op_connect,
    op_network,
    op_wait,
    op_script,
    op_power_cut,
    op_reset,
    op_hang,
    op_count,
};

/// "start", "open", ... as the log has them: docs/simulated-device.md says what each is.
extern const char *const sim_op_names[op_count];

constexpr int64_t sim_absent = INT64_MIN; ///< a number that does not apply

struct sim_operation {
    uint64_t n;     ///< number of the operation, from 1
    int64_t offset; ///< position in the partition before a read or a write; of a seek, as asked
    int64_t length; ///< bytes asked for
    int64_t result; ///< what the program was given
    int64_t number; ///< counted from 1: flash writes, reads, seeks, syncs, kicks, sockets, each
                    ///< kind by itself; opens by partition
    int64_t duration_us; ///< of a sleep or an expired wait, virtual
    int64_t received;    ///< network bytes
    int64_t sent;
    int64_t calls;      ///< network calls that this operation sums up
    int64_t virtual_us; ///< time after the operation, since the start
    int64_t real_us;
    int32_t error; ///< errno with a negative result, else 0
    int32_t line;  ///< of a kick, with its level
    int32_t level;
    int32_t fault; ///< the fault that played a part, from 0 in the order of --fault; or -1
    sim_op op;
    uint8_t text_size;
    char target[62]; ///< the path as the program gave it, or ADDRESS:PORT; empty for none
    char text[128];  ///< of a datagram: its first bytes; of an open: its access; not terminated

    [[nodiscard]] std::string_view text_view() const
    {
        return {text, text_size};
    }
};
static_assert(sizeof(sim_operation) == 11 * 8 + 4 * 4 + 64 + 128);
static_assert(std::is_trivially_copyable_v<sim_operation>);

/// An operation with nothing in it but what it is; `target` may be null.
sim_operation make_operation(sim_op op, const char *target);

/// An open of `path` with these flags, of which the log has what it may be used for.
sim_operation make_open(const char *path, int flags);
