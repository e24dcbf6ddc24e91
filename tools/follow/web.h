// SPDX-License-Identifier: GPL-2.0-or-later
//
// The page and the state over HTTP: the paths /, /follow.html and /state.json, nothing else. Serves
// from threads of its own.
#pragma once

#include <cstddef>
#include <string_view>

namespace follow {

struct web_server;

/// Listens on `address` (a number or a name) and `port` (0: any) and serves `page`, which outlives
/// the server. Null, with one line without a newline in `error`, when it cannot; `*port` is the
/// port then. Call it with the signals blocked that are not meant for its threads.
web_server *web_start(const char *address, int *port, std::string_view page, char *error,
                      size_t error_size);

/// `state` is what /state.json answers from now on.
void web_publish(web_server *server, std::string_view state);

/// Ends all connections and threads. Null is allowed.
void web_stop(web_server *server);

} // namespace follow
