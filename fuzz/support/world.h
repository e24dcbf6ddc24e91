// SPDX-License-Identifier: GPL-2.0-or-later
//
// The world around the program while a fuzz target runs: system calls and allocations are caught at
// link time (support/wrap.cpp) and answered from here, at once and from the input alone. Nothing
// reaches the machine, nothing waits, and a run leaves nothing behind for the next one.
//
// A descriptor of the world is a number from first_descriptor on, so that a real one can never be
// taken for it. Only the thread and the time of a `run` are caught; the fuzzer itself is not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace fuzz {

constexpr int first_descriptor = 500;

/// Kinds of record in the script of datagrams, taken modulo their number.
enum datagram_kind : uint8_t {
    datagram_whole,     ///< the awaited TFTP block, 512 bytes of data; a byte: how many in a row
    datagram_part,      ///< the awaited TFTP block with as many bytes of data as the next byte says
    datagram_duplicate, ///< the TFTP block before the awaited one
    datagram_raw,       ///< as many bytes of the script as the next byte says
    datagram_foreign,   ///< as raw, from another port
    datagram_large,     ///< as raw, cut off from 600 bytes of the script
    datagram_silence,   ///< the wait runs out
    datagram_failure,   ///< the receive fails
    datagram_kind_count,
};

/// What the world does in one run.
struct world {
    std::vector<uint8_t> streams;   ///< script of the TCP peers (scripted_peer.h)
    std::vector<uint8_t> datagrams; ///< script of the UDP peer; silence at its end
    /// The n-th caught call, from 1, fails as the system lets it fail; 0 for none.
    unsigned fault = 0;
    /// Block devices that can be opened, by path, and what they hold; they grow when written.
    std::map<std::string, std::vector<uint8_t>> devices;
};

/// Catches the calls of this thread as long as it lives, and then releases what the program would
/// have released by ending: memory and descriptors.
class run {
public:
    explicit run(world *world);
    ~run();
    run(const run &) = delete;
    run &operator=(const run &) = delete;

    /// Descriptors, and allocations, that the program holds now.
    static size_t open_descriptors();
    static size_t allocations();
};

} // namespace fuzz
