// SPDX-License-Identifier: GPL-2.0-or-later
//
// Peers of a program's connections that live in a script and not in a process: greet, wait for a
// line, send, fall silent, close. Nothing waits and nothing reaches the machine; unit tests and
// fuzzers put them behind the calls that they have taken over.
//
// A script is what the peers send, in the order of the program's connects, with control bytes in
// between:
//
//     "220 hello\r\n" PEER_AWAITS_LINE "331 password\r\n" PEER_SILENCE PEER_CLOSE
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <sys/types.h>

/// Bytes with a meaning; any other byte stands for itself.
enum peer_control : uint8_t {
    peer_resets = 0x18,      ///< every write fails
    peer_awaits_line = 0x19, ///< nothing follows before the program has sent a line more
    peer_interrupts = 0x1A,  ///< the read is interrupted by a signal
    peer_literal = 0x1B,     ///< the next byte stands for itself
    peer_silence = 0x1C,     ///< the wait for data runs out
    peer_close = 0x1D,       ///< the peer closes; what follows is the next connection's
    peer_pause = 0x1E,       ///< the read ends here
    peer_fails = 0x1F,       ///< the read fails
};

/// The same for scripts that are written as texts.
#define PEER_RESETS "\x18"
#define PEER_AWAITS_LINE "\x19"
#define PEER_INTERRUPTS "\x1A"
#define PEER_LITERAL "\x1B"
#define PEER_SILENCE "\x1C"
#define PEER_CLOSE "\x1D"
#define PEER_PAUSE "\x1E"
#define PEER_FAILS "\x1F"

/// One connection's peer; its script outlives it. At the script's end the peer has closed.
struct scripted_peer {
    std::span<const uint8_t> script;
    size_t position = 0;
    size_t lines = 0; ///< that the program sent and nothing waited for yet

    /// Whether there is something to read (an end or a failure counts); takes a silence away.
    bool readable();

    /// Contract of read: 0 when the peer has closed; -1 with EINTR, EIO, or EAGAIN in a silence,
    /// each of which is over then, and with EAGAIN while a line is awaited.
    ssize_t read(void *buffer, size_t size);

    /// The program sends this. Contract of write: -1 with EPIPE where writes fail.
    ssize_t write(const void *data, size_t size);

private:
    [[nodiscard]] uint8_t control() const;
};

/// Hands the pieces of one script out, a piece a connect.
struct scripted_peers {
    std::span<const uint8_t> script;
    scripted_peer connect();
};

/// Lets one call of many fail: "for every n, the n-th".
struct nth_call {
    unsigned fails_at = 0; ///< from 1; 0 for none
    unsigned count = 0;    ///< calls so far

    /// Counts a call. True when it is the one to fail; errno is EIO then.
    bool fails();
};
