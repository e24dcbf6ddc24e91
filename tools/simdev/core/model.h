// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the files of the model share: its state, the clock, the log. Not for others.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "tools/simdev/core/faults.h"
#include "tools/simdev/core/real.h"
#include "tools/simdev/core/sim.h"

constexpr int slot_count = 1024; ///< descriptors that are followed; those above are not
constexpr int path_capacity = 512;

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
    int8_t partition;           ///< 0 to 9
    char target[32];            ///< as it is logged
    int64_t size;               ///< of a partition
    int64_t received;           ///< bytes on this connection, for the server's faults
    int64_t receive_timeout_us; ///< 0: none
    int64_t send_timeout_us;
    int64_t pending_received; ///< network traffic that is not logged yet
    int64_t pending_sent;
    int64_t pending_calls;
    const char *pending_fault;
    int64_t drips_at_us; ///< virtual; nothing can be received before
};

struct port_pair {
    bool udp;
    uint16_t device; ///< host byte order
    uint16_t actual;
};

struct sim_model {
    bool active;
    bool fast;
    bool has_server_fault;
    std::array<bool, 2> foreign_receivers;
    int folder_fd; ///< of the device folder, out of the program's way
    int64_t grace_us;
    int64_t script_us;
    int64_t watchdog_us; ///< 0: none
    uint64_t seed;
    char folder[path_capacity - 64]; ///< so that every path below it fits
    std::array<port_pair, 16> ports;
    size_t port_count;
    std::array<sim_fault, 32> faults;
    size_t fault_count;
    std::array<slot, slot_count> slots;
    int busy_fd; ///< the one with pending network traffic, or -1
    sim_sink sink;
    void *sink_argument;

    uint64_t operations;
    int64_t virtual_us;
    int64_t started_us;
    int64_t last_kick_us; ///< virtual
    int64_t flash_writes;
    int64_t flash_reads;
    int64_t kicks;
    std::array<int64_t, 10> opens;
    std::array<int, 2> receiver_queued;

    char script[path_capacity]; ///< the real path
    char *const *environment;   ///< for programs that are started
};

extern sim_model model;

/// An operation with nothing in it but its name.
sim_operation make_operation(const char *name);

/// Completes `operation` (number, times, errno for a negative result) and hands it to the sink,
/// after the traffic that is pending. Leaves errno alone.
void log_operation(sim_operation *operation);

/// Logs the network traffic since the last operation as one. Leaves errno alone.
void log_pending();

/// Moves virtual time on; ends the program when that starves the watchdog or lasts a day.
void advance(int64_t microseconds);

/// For a call that would wait for ever: resets by the watchdog if there is one, or ends.
[[noreturn]] void hang(const char *fault);

/// Ends the program as the device does, after a last operation called `name`.
[[noreturn]] void end_program(sim_end status, const char *name, const char *fault);

/// The first fault of `kind` that concerns operation `number`, or null.
const sim_fault *find_fault(fault_kind kind, int64_t number);

/// Waits in real time, whatever signals come.
void sleep_really(int64_t microseconds);

/// `read` and `write` on a TCP connection.
ssize_t read_connection(int fd, slot *connection, void *buffer, size_t size);
ssize_t write_connection(int fd, slot *connection, const void *data, size_t size);

/// The slot of a descriptor that is followed, or null.
slot *followed(int fd);

/// A monotonic clock in microseconds.
int64_t real_now_us();

int64_t to_us(const timeval *time);
int64_t to_us(const timespec *time);
