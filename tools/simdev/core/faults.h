// SPDX-License-Identifier: GPL-2.0-or-later
//
// Faults on request. The text of one is NAME[@N][xM][:KEY=VALUE[,KEY=VALUE]]: what, at which
// operation of its kind (from 1; of bytes for the server's faults), how many times in a row.
//
// The device's operations are counted by kind: flash writes (the trailer's included), flash reads,
// and so on. What comes of a fault is the same in every run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

enum fault_kind {
    fault_cut,
    fault_write_error,
    fault_short_write,
    fault_bit_flip,
    fault_read_error,
    fault_open_error,
    fault_seek_error,
    fault_sync_slow,
    fault_gpio_refuse,
    fault_receiver_missing,
    fault_receiver_stuck,
    fault_script_hang,
    fault_closed,
    fault_watchdog,
    fault_socket_error,
    fault_server_stall,
    fault_server_drip,
    fault_server_cut,
    fault_kind_count,
};

struct sim_fault {
    fault_kind kind;
    int64_t at;      ///< first operation concerned; byte for a server's faults
    int64_t times;   ///< operations concerned in a row
    int64_t bytes;   ///< torn, bytes or bit; -1 when not given
    int64_t place;   ///< the partition, the receiver (from 1) or the closed stream; -1: any
    int64_t seconds; ///< of the watchdog, each drip or each sync
};

/// One KEY=VALUE that a fault takes.
struct fault_key {
    const char *name; ///< null: none
    int64_t sim_fault::*member;
    int64_t minimum;
    int64_t maximum;
    bool needed;
};

enum class fault_at { none, optional, needed };

/// All there is to know of a kind but what comes of it, which is up to the unit that asks for it.
struct fault_row {
    const char *name;
    const char *form;             ///< how it is written
    const char *text;             ///< what it does
    fault_at at = fault_at::none; ///< whether "@N" may stand or must
    int64_t first = 1;            ///< the smallest N
    bool repeats = false;         ///< whether "xM" may stand
    int64_t times = 1;            ///< when it does not
    fault_key keys[2] = {};
};

/// One row a kind, in the order of the enum: the help, the documents and the log have it from here.
extern const fault_row fault_rows[fault_kind_count];

/// Reads the text of one fault. 0, or -1 with one line in `error`.
int fault_parse(const char *text, sim_fault *fault, char *error, size_t error_size);

constexpr size_t fault_capacity = 32;

/// Takes the faults of a run: texts separated by ";". 0, or -1 with one line in `error`.
int faults_start(const char *list, char *error, size_t error_size);

/// The faults of the run, in the order in which they were given.
std::span<const sim_fault> given_faults();

/// The first fault of `kind` that concerns operation number `number` of `place`, or null.
const sim_fault *find_fault(fault_kind kind, int64_t number = 1, int64_t place = -1);

/// The index of one of the run's faults, as operations have it; -1 for null.
int fault_index(const sim_fault *fault);
