// SPDX-License-Identifier: GPL-2.0-or-later
//
// The lowest layer of the HTTP client: splitting URLs, connecting, reading and writing with a
// bounded wait. Diagnostics name the unit "http-priv.c".
//
// TCP over IPv4 only. Where a client has a TLS object its reads and writes go through that object,
// but readiness is still asked of the socket below it. Nothing here is retried, and a socket
// outside 0 to FD_SETSIZE - 1 is never ready. Besides diagnostics, connects with a time-out and
// writes under TLS are traced on standard error.
#pragma once

#include <cstdint>
#include <netinet/in.h>

#include "httpc/httpc_client.h"
#include "platform/diagnostic.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the library's own names
// begin with an underscore, and diagnostics print them.

/// Splits `url`; 0, or -1 with a diagnostic when it is null or has 128 characters or more.
///
/// `scheme` (6 bytes) becomes "HTTP" or "HTTPS" where the URL begins with exactly "http://" or
/// "https://", and stays as it is otherwise. `host` and `path` have 128 bytes each. Nothing else is
/// checked: an empty host and port 0 pass. A URL that begins with "/" is a path on 127.0.0.1, port
/// 80. A port without a path leaves `path` as it is.
int _http_parse_url(const char *url, char *scheme, char *host, uint16_t *port, char *path);

/// Connects `socket`, or a new one when it is below 1, and returns it; -1 with diagnostics, with a
/// socket made here closed. `timeout_seconds` below 1 is a blocking connect.
int _tcp_connect2(int socket, const sockaddr *address, socklen_t address_length,
                  int timeout_seconds);

/// Connects to the request's host and port, or to `host` and `port` when the request's host is
/// exactly "127.0.0.1". The socket, or -1 with diagnostics: at once when the host is unknown, after
/// one second when the connect fails.
int _http_net_connect(const char *host, uint16_t port, const char *request_host,
                      uint16_t request_port, int timeout_seconds);

/// Waits up to `seconds` for `socket` to become readable; whether it is. A wait that fails is
/// reported as of `place` and leaves the answer to the set, as it then stands.
bool _http_wait_readable(int socket, int seconds, diagnostic_place place);

/// Waits up to two seconds and reads up to `length` bytes. Their count; 0 when nothing came or the
/// peer closed; -1 on a failed read, without a diagnostic.
int _http_net_read(httpc_client *client, void *buffer, int length);

/// Waits up to two seconds for the client's socket to become writable and writes once. The bytes
/// written, which may be fewer; 0 when it did not become writable, which the client counts; -1 with
/// a diagnostic. `buffer` is text with a terminator behind its `length` bytes: under TLS it is
/// printed.
int _http_net_write(httpc_client *client, const char *buffer, int length);

// NOLINTEND(bugprone-reserved-identifier)
