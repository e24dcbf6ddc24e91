// SPDX-License-Identifier: GPL-2.0-or-later
//
// The network of a unit test: connects reach peers that live in scripts
// (tools/simdev/core/scripted_peer.h), nothing is waited for and nothing leaves the program. A test
// that links played_network has its socket calls taken over; descriptors of others go to the
// system.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <sys/socket.h>

#include "tools/simdev/core/scripted_peer.h"

struct played_peer {
    int port;
    std::string script;
    int error = 0;       ///< what the connect fails with; the peer counts as reached all the same
    bool resets = false; ///< every write fails

    // What becomes of it:
    int socket = -1;           ///< the program's; -1 before the connect and once it is closed
    std::string address = "";  ///< where the program connected to, "127.0.0.1:80"
    std::string received = ""; ///< from the program
    int reads = 0;
    scripted_peer scripted = {};
};

struct played_network {
    /// A connect reaches the first with its port that none has reached yet; else it is refused.
    std::deque<played_peer> peers = {};
    std::function<bool()> writable = nullptr;      ///< what a wait for writing says; null: always
    std::function<void(int)> at_connect = nullptr; ///< told the socket before it connects
    long waited_seconds = 0;                       ///< the limit of the last wait
    unsigned slept_seconds = 0;
};
extern played_network played;

/// A socket that is connected already, to a further peer with this script.
int play_connected(const std::string &script);

template<typename Value> Value socket_option(int socket, int level, int name)
{
    Value value = {};
    socklen_t size = sizeof(value);
    getsockopt(socket, level, name, &value, &size);
    return value;
}
