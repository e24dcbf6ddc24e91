// SPDX-License-Identifier: GPL-2.0-or-later
//
// Reading the response of an HTTP request. Diagnostics name the unit "cprotocol.c".
//
// The reader hands out a head byte by byte from refills of the receive buffer. A head's refill must
// be full (1024 bytes): a response of fewer bytes in all fails, and so does a head that goes on
// into a refill that the connection cannot fill. The body has no such need. Every byte of the head
// is traced on standard error.
#pragma once

#include "httpc/httpc_client.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the library's own names
// begin with an underscore, and diagnostics print them.

/// As `_http_net_read`, but waits up to 300 seconds; under TLS each read is traced. A failed read
/// comes without a diagnostic, those of the functions below have one.
int _httpc_net_read(httpc_client *client, void *buffer, int length);

/// Refills the receive buffer from its start: 1 with 1024 or 1025 bytes available; 0 with fewer
/// when the connection ended or was silent for 300 seconds; -1 on a failed read, with the count of
/// available bytes as it was.
int _httpc_recv(httpc_client *client);

/// Takes the next byte of the head: 1, or -1 when there is none or the head has over 64 KiB.
int _httpc_read_char(httpc_client *client, char *out);

/// Reads up to `max` characters and a terminator (`max` + 1 bytes) up to a line feed, which is
/// dropped, as every carriage return is. 1, or -1 with what was read so far terminated. A line of
/// `max` characters leaves its line feed behind, as an empty line.
int _httpc_read_line(httpc_client *client, char *buffer, int max);

/// Reads and takes apart a head (RFC 1945, section 6) into the client's response, its content
/// length and, with `keep_headers` set there, its headers. 1, 0 when it ended with the connection;
/// -1.
int _httpc_parse_response(httpc_client *client);

// NOLINTEND(bugprone-reserved-identifier)
