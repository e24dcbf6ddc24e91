// SPDX-License-Identifier: GPL-2.0-or-later
//
// A TFTP server that lives in a script of datagrams. Each begins with a byte: its two lowest bits
// are the kind, then come the flags, and the four highest say how many more of the same follow.
// Unless it is a long one, a byte with its length is next.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <sys/types.h>

namespace fuzz {

enum datagram : uint8_t {
    datagram_awaited,   ///< the awaited block, with so many bytes of data
    datagram_duplicate, ///< the block before
    datagram_raw,       ///< so many bytes of the script
    datagram_none,      ///< the wait runs out; a long one: the receive fails
    datagram_kinds,
    datagram_long = 4,    ///< 512 bytes of data, or 600 of the script
    datagram_foreign = 8, ///< from another port
};

/// Its script outlives it; it is silent at the script's end.
struct tftp_peer {
    std::span<const uint8_t> script;
    uint8_t control = 0; ///< of the datagram that comes as often as `repeats` says
    uint8_t repeats = 0;
    size_t length = 0;
    uint16_t awaited = 0; ///< number of the block, as the program's packets say

    /// Whether there is something to receive (a failure counts); takes a silence away.
    bool readable();

    /// The next datagram, at most `size` bytes, and its sender's port. -1 for a failure.
    ssize_t receive(void *buffer, size_t size, uint16_t *port);

    /// The program has sent this.
    void take(const void *packet, size_t size);

private:
    std::span<const uint8_t> next(size_t count);
    void next_datagram();
};

} // namespace fuzz
