// SPDX-License-Identifier: GPL-2.0-or-later
//
// The network of a unit test: connects reach peers that live in scripts
// (tools/simdev/core/scripted_peer.h), nothing is waited for and nothing leaves the program. A test
// that links played_network has its socket calls taken over; descriptors of others go to the
// system.
#pragma once

#include <deque>
#include <string>

#include "tools/simdev/core/scripted_peer.h"

struct played_peer {
    int port;
    std::string script;
    bool resets = false; ///< every write fails

    // What becomes of it:
    int socket = -1;           ///< the program's; -1 before the connect and once it is closed
    std::string address = "";  ///< where the program connected to, "127.0.0.1:80"
    std::string received = ""; ///< from the program
    scripted_peer scripted = {};
};

struct played_network {
    /// A connect reaches the first with its port that none has reached yet; else it is refused.
    std::deque<played_peer> peers = {};
    bool (*writable)() = nullptr; ///< what a wait for writing says; null: always
    long waited_seconds = 0;      ///< the limit of the last wait
};
extern played_network played;

/// A socket that is connected already, to a further peer with this script.
int play_connected(const std::string &script);
