// SPDX-License-Identifier: GPL-2.0-or-later
//
// The connection of an HTTP client: how it begins, and how its socket is left. Diagnostics name the
// unit "httpc.c".
#pragma once

#include "httpc/httpc_client.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the library's own names
// begin with an underscore.

/// Connects a client that has no socket, a plain one to the request's host and port, one with a TLS
/// object to its own: 0, or -1 with a diagnostic and the text of `errno` as the request's error.
int _httpc_connect(httpc_client *client);

/// Closes the client's socket and forgets it. The TLS object forgets it too: what it may still send
/// must not reach whoever gets the descriptor's number next.
void _httpc_drop_socket(httpc_client *client);

/// Closes the socket and stores the text of `errno` as the request's error: 0.
int _httpc_set_error(httpc_client *client);

// NOLINTEND(bugprone-reserved-identifier)
