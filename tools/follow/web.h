// SPDX-License-Identifier: GPL-2.0-or-later
//
// The page and the state over HTTP: the paths /, /follow.html and /state.json, nothing else. Serves
// from threads of its own. A build without it has web_none.cpp in its place.
#pragma once

#include <string_view>

namespace follow {

/// The page as the program has it, and its content security policy, which it also names itself;
/// made at build time from the folder page/.
extern const std::string_view page_text;
extern const char *const page_policy;

struct web_server;

/// Listens on `address` (a number or a name) and `port` (0: any) and serves the page and `state`.
/// One line on standard error says where, or, with null, why it cannot. Call it with the signals
/// blocked that are not meant for its threads.
web_server *web_start(const char *address, int port, std::string_view state);

/// `state` is what /state.json answers from now on. Null is allowed.
void web_publish(web_server *web, std::string_view state);

/// Ends all connections and threads. Null is allowed.
void web_stop(web_server *web);

} // namespace follow
