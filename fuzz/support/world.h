// SPDX-License-Identifier: GPL-2.0-or-later
//
// The world around the program while a fuzz target runs. simdev's face takes the program's system
// calls over; behind it, in place of the real system, stands what the input says: everything is
// answered at once, nothing reaches the machine, and a run leaves nothing behind for the next one.
// Not simdev's model of a device, which has the time, the partitions' ends and the ends of a
// program that a real one has: here a program must get along with whatever comes, ten thousand
// times a second. Unit tests of the protocols play on it as well, and look at what became of the
// connections.
//
// A descriptor of the world is a number from first_descriptor on, so that a real one can never be
// taken for it. Only the thread and the time of a `run` are caught; the fuzzer itself is not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "tools/simdev/core/scripted_peer.h"

namespace fuzz {

constexpr int first_descriptor = 500;

/// A connection of the program.
struct connection {
    std::string address;       ///< where it leads, "127.0.0.1:80"
    std::string received = ""; ///< from the program
    std::string script = "";   ///< of a peer that it is connected to already
};

/// What the world does in one run.
struct world {
    /// What the peers send: TCP peers as in scripted_peer.h, the UDP peer as in tftp_peer.h.
    std::vector<uint8_t> script = {};
    /// Whether a connect behind the script's end is refused; else that peer closes at once.
    bool refuses = false;
    /// What a wait for writing says; null: always.
    bool (*writable)() = nullptr;
    /// The n-th caught call, from 1, fails as the system lets it fail; 0 for none.
    unsigned fault = 0;
    /// Block devices that can be opened, by path, and what they hold; they grow when written.
    std::map<std::string, std::vector<uint8_t>> devices = {};

    // What became of it:
    std::deque<connection> connections = {}; ///< in the order of the connects
    long waited_seconds = 0;                 ///< the limit of the last wait
};

/// Catches the calls of this thread as long as it lives, and then releases what the program would
/// have released by ending: memory and descriptors.
class run {
public:
    explicit run(world *world);
    ~run();
    run(const run &) = delete;
    run &operator=(const run &) = delete;

    /// A socket that is connected already, to a further peer with this script.
    static int connected_to(const std::string &script);

    /// Descriptors, and allocations, that the program holds now.
    static size_t open_descriptors();
    static size_t allocations();
};

/// Counts a caught call that may fail, as those of tls.cpp do. True when it is the one to fail;
/// errno is then set.
bool fails_now();

} // namespace fuzz
