// SPDX-License-Identifier: GPL-2.0-or-later
//
// A model of the device's platform: flash partitions, GPIO, clock, status receivers, network,
// faults.
//
// One model, two faces. libsimdev_preload.so puts it under the unmodified program, simdev_wrap
// links it into a program with -Wl,--wrap, sanitizers included. Both hand the calls that they take
// over to the sim_ functions below, each of which has the contract of the call that it is named
// for.
//
// Fixed device paths lead into the device folder: /dev/fla0 to 9, /dev/gpio, /etc/syscfg.conf (or
// where the build has it), /usr/etc/ca-cert.pem, the network-stop script and the two status
// sockets. A partition has the size of its file: writes past the end are cut short, then refused
// with ENOSPC. Everything else, and everything before sim_start, goes to the real system untouched.
//
// Virtual time is the sum of all sleeps and of all network waits that ended without an answer, so
// it is the same in every run. In fast mode nothing is slept, and a wait with no answer within the
// grace time ends at once and is counted in full.
//
// Nothing here allocates memory or uses stdio: the program under test may be short of both, and a
// child after vfork passes through.
#pragma once

#include <cstdint>
#include <cstdio>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <time.h>

/// One thing that the program did to its platform, as it is logged. Texts are valid during the call
/// of the sink only. Numbers that do not apply are -1, texts null.
struct sim_operation {
    uint64_t n;         ///< number of the operation, from 1
    const char *name;   ///< "open", "write", ...: docs/simulated-device.md has them all
    const char *target; ///< the path as the program gave it, or ADDRESS:PORT
    int64_t offset;     ///< position in the partition before a read or a write, or sought
    int64_t length;     ///< bytes asked for
    int64_t result;     ///< what the program was given
    int error;          ///< errno with a negative result, else 0
    int64_t number;     ///< of flash writes and reads, each kind counted from 1; opens by partition
    int64_t duration_us; ///< of a sleep or an expired wait, virtual
    int64_t received;    ///< network bytes
    int64_t sent;
    int64_t calls; ///< network calls that this operation sums up
    int64_t line;  ///< of a kick
    int64_t level;
    const char *fault; ///< the name of the fault that played a part
    const void *data;  ///< bytes of a write or a datagram, as handed over by the program
    uint64_t data_size;
    int64_t virtual_us; ///< time after the operation, since the start
    int64_t real_us;
};

using sim_sink = void (*)(void *argument, const sim_operation *operation);

struct sim_config {
    const char *folder = nullptr; ///< the device folder
    bool fast = false;            ///< count sleeps and unanswered waits instead of waiting
    int grace_ms = 1000;          ///< in fast mode: how long a peer may really take to answer
    const char *ports = "";       ///< "udp:69=4069,tcp:21=2121": device's port = real port
    const char *faults = "";      ///< specifications, separated by ";" (faults.h)
    const char *receivers = "";   ///< "1", "2" or "12": those that somebody else is
    uint64_t seed = 0;            ///< for what a fault leaves open
    int64_t script_us = 0;        ///< virtual duration of the network-stop script
    sim_sink sink = nullptr;      ///< told every operation
    void *sink_argument = nullptr;
};

/// How a program ends when the device does, in place of its own exit status.
enum sim_end : int {
    sim_end_power_cut = 100, ///< a "cut" fault
    sim_end_reset = 101,     ///< the watchdog was not fed
    sim_end_hang = 102,      ///< it would have waited for ever, or a day of virtual time has passed
};

/// Starts the simulation: clock and all counters at 0. 0, or -1 with a line in `error` (at least
/// 256 bytes) for a folder, a port list or a fault that cannot be used. Texts are copied.
int sim_start(const sim_config *config, char *error, size_t error_size);

/// Ends it: from now on every call goes to the real system again.
void sim_stop();

/// Starts from the environment that simdev sets, with a sink that writes one JSON object a line to
/// the log's descriptor. Does nothing without it; ends the program with 125 when it is not usable.
void sim_start_from_environment();

/// Virtual microseconds since the start.
int64_t sim_virtual_us();

int sim_open(const char *path, int flags, mode_t mode);
FILE *sim_fopen(const char *path, const char *mode);
ssize_t sim_read(int fd, void *buffer, size_t size);
ssize_t sim_write(int fd, const void *buffer, size_t size);
off64_t sim_lseek(int fd, off64_t offset, int whence);
int sim_close(int fd);
int sim_ioctl(int fd, unsigned long request, void *argument);
void sim_sync();
int sim_nanosleep(const timespec *time, timespec *rest);
int sim_clock_nanosleep(clockid_t clock, int flags, const timespec *time, timespec *rest);
int sim_select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout);
int sim_poll(pollfd *fds, nfds_t count, int timeout_ms);
int sim_socket(int domain, int type, int protocol);
int sim_connect(int fd, const sockaddr *address, socklen_t size);
ssize_t sim_send(int fd, const void *data, size_t size, int flags);
ssize_t sim_sendto(int fd, const void *data, size_t size, int flags, const sockaddr *address,
                   socklen_t address_size);
ssize_t sim_recv(int fd, void *buffer, size_t size, int flags);
ssize_t sim_recvfrom(int fd, void *buffer, size_t size, int flags, sockaddr *address,
                     socklen_t *address_size);
int sim_setsockopt(int fd, int level, int name, const void *value, socklen_t size);
pid_t sim_waitpid(pid_t pid, int *status, int options);

/// Runs in a child after vfork: touches no memory but the stack. The environment that the program
/// gets is the one from the start of the simulation, without the simulation's own variables.
int sim_execv(const char *path, char *const *arguments);
