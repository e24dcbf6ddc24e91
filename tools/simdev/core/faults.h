// SPDX-License-Identifier: GPL-2.0-or-later
//
// Faults on request. A specification is NAME[@N][xM][:KEY=VALUE[,KEY=VALUE]]: what, at which
// operation of its kind (from 1; of bytes for the server's faults), how many times in a row.
//
// The device's operations are counted by kind: flash writes (the trailer's included), flash reads,
// opens of each partition, kicks. What comes of a fault is the same in every run.
#pragma once

#include <cstddef>
#include <cstdint>

enum fault_kind {
    fault_cut,
    fault_write_error,
    fault_short_write,
    fault_bit_flip,
    fault_read_error,
    fault_open_error,
    fault_gpio_refuse,
    fault_receiver_missing,
    fault_receiver_stuck,
    fault_script_hang,
    fault_closed,
    fault_watchdog,
    fault_server_stall,
    fault_server_drip,
    fault_server_cut,
    fault_kind_count,
};

struct sim_fault {
    fault_kind kind;
    int64_t at;        ///< first operation concerned; byte for a server's faults
    int64_t times;     ///< operations concerned in a row
    int64_t bytes;     ///< torn, bytes or bit; -1 when not given
    int64_t partition; ///< -1: any
    int64_t seconds;   ///< of the watchdog or of each drip
    int64_t fd;        ///< of a closed stream
    int64_t receiver;  ///< 1 /tmp/.upgrd_info, 2 /tmp/.syscfg-server, -1 both
};

/// One row a kind, in the order of the enum, for help texts and for the log.
struct fault_description {
    const char *name;
    const char *form; ///< how it is written
    const char *text; ///< what it does
};
extern const fault_description fault_descriptions[fault_kind_count];

/// Reads one specification. 0, or -1 with one line in `error`.
int fault_parse(const char *specification, sim_fault *fault, char *error, size_t error_size);

/// Whether operation number `number` is one that `fault` concerns.
bool fault_hits(const sim_fault *fault, int64_t number);
