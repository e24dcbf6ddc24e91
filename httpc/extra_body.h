// SPDX-License-Identifier: GPL-2.0-or-later
//
// For users of the library; the program does not: `httpcRecvResponse`, which hands the body out in
// place. Diagnostics name the unit "httpc.c".
#pragma once

struct httpc_client;

// NOLINTBEGIN(bugprone-reserved-identifier): the library's own names
// begin with an underscore.

/// Empties the receive buffer and refills it; the result is that of `_httpc_recv`.
int _httpc_read_response(httpc_client *client);

// NOLINTEND(bugprone-reserved-identifier)
