// SPDX-License-Identifier: GPL-2.0-or-later
//
// What `httpcSendRequest` is made of. Diagnostics name the unit "httpc.c".
#pragma once

#include "httpc/httpc_client.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the library's own names
// begin with an underscore.

/// Appends all variables to the encoded ones, the first value of each name: 0, or -1 with a
/// diagnostic when they do not fit. Repeated sends append them again until a GET has taken them.
int _httpc_encode_vars(httpc_client *client);

/// Formats the request's first line into `buffer` and returns its length; a GET takes the encoded
/// variables. A method other than GET and POST has an empty line, 0.
int _httpc_encode_first_line(httpc_client *client, char *buffer, int size);

// NOLINTEND(bugprone-reserved-identifier)
