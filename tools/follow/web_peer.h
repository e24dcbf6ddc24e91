// SPDX-License-Identifier: GPL-2.0-or-later
//
// The HTTP server with an end to what one peer can take of it. The library reads a line until its
// newline comes, however much memory that takes, and waits anew for every byte: a peer that sends
// neither would fill the memory of the device during its upgrade, or keep the program from ending.
#pragma once

#include <httplib.h>

namespace follow {

constexpr size_t peer_request_bytes = 64 * 1024; ///< head and body; cookies of other ports come too
constexpr int peer_patience_ms = 5000;           ///< for a whole request, and for the next one
constexpr size_t peer_requests = 1000;           ///< a connection

class peer_server : public httplib::Server {
private:
    /// Answers the requests of one connection, and closes it: when the peer does, when a limit is
    /// met, or within 0.1 s of stop().
    bool process_and_close_socket(socket_t socket) override;
};

} // namespace follow
