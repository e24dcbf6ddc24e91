// SPDX-License-Identifier: GPL-2.0-or-later
//
// What becomes of a response whose head was read: the steps of `httpcGetResponse` in httpc.h, whose
// operations on responses stand here, too. Diagnostics name the unit "httpc.c".
#pragma once

#include "httpc/httpc_client.h"

constexpr int httpc_response_final = 0;   ///< the response is the result
constexpr int httpc_response_follows = 1; ///< the request was sent again: read the next response

// NOLINTBEGIN(bugprone-reserved-identifier): the library's own names
// begin with an underscore.

/// Follows the statuses that redirect: 301, 302 and 304. One of the two results above, or -1 with a
/// diagnostic.
int _httpc_dispose_response(httpc_client *client);

/// Sends the request again to where the header "Location" points, and clears the response.
/// Likewise; without that header the response is final, with a diagnostic. The next response is
/// read by the caller: a server may redirect without end, and the stack must not grow with it.
int _httpc_dispose_redirect(httpc_client *client);

// NOLINTEND(bugprone-reserved-identifier)
