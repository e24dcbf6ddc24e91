// SPDX-License-Identifier: GPL-2.0-or-later
//
// A small HTTP/1.0 client (RFC 1945) with name/value lists, redirects and TLS.
//
// One request a connection. A client is opened for a host and port; `httpcInitRequest` starts a
// request, headers and variables are added, `httpcSendRequest` connects and sends it,
// `httpcGetResponse` reads the head and follows redirects, and the body is read by copy
// (`httpcReadResponse`) or in place (`httpcRecvResponse`) until a result of 0, which closes the
// socket. A body ends with the connection or with 300 seconds of silence; its announced length is
// only told.
//
// All results are 0 or more for success and -1 or null for failure. What the network or the peer
// spoils is reported on standard error; arguments that are refused, and memory that is missing, are
// not unless that is said. Pointers handed out belong to the client. No client may be null unless
// that is said. Writes to a closed peer fail; the process ignores SIGPIPE.
#pragma once

#include <cstdint>

struct httpc_client;

constexpr int httpc_method_get = 1;
constexpr int httpc_method_post = 2;

/// Splits a URL as `_http_parse_url` does: 0, or -1 with a diagnostic when it is null or has 128
/// characters or more. `scheme` has 6 bytes or more, `host` and `path` 128 or more each; start them
/// zeroed, since what the URL does not name stays as it is.
int httpcParseURL(const char *url, char *scheme, char *host, uint16_t *port, char *path);

/// A client for `host` (under 128 characters) and `port`, not connected. Null when the host is null
/// or (with a diagnostic) too long, the port 0, there is no memory or, with `use_tls`, no TLS
/// object can be made (with a diagnostic).
httpc_client *httpcOpenClient(const char *host, uint16_t port, int use_tls);

/// Starts a request to the client's own host: 0. Forgets the request before, except the variables
/// and headers; the response's state stays too, so that a client whose response was parsed gets 0
/// from `httpcGetResponse` for ever after. `path` is cut at 127 characters.
int httpcInitRequest(httpc_client *client, int method, const char *path);

/// Sets the request's content type, cut at 63 characters; null sets none. 0.
int httpcSetContentType(httpc_client *client, const char *type);

/// Connects unless it is connected, and sends the request: a running count of what was sent, 13
/// more than its bytes, or -1. Plain clients connect to the request's host, TLS clients to the
/// client's own. A failed write closes the socket, and so does the thirtieth in a row that waited 2
/// s in vain. Lines of 512 bytes or more are left out.
int httpcSendRequest(httpc_client *client);

/// Reads the response's head and returns its status, 0 when one was read before, -1 on failure,
/// with the socket closed. With `keep_headers` other than 0 the response's headers are stored in
/// place of the request's, and the statuses 301, 302 and 304 with a "Location" are followed, any
/// number of times. The whole response must have 1024 bytes or more, see cprotocol.h.
int httpcGetResponse(httpc_client *client, int keep_headers);

/// Copies up to `size` bytes of the body: their count; 0 at the end, with the socket closed; -1,
/// likewise. A `size` of 0 reads nothing and ends the body unless bytes wait in the client.
int httpcReadResponse(httpc_client *client, void *buffer, int size);

/// The length of the body last sent or, after a response, the one it announced: 0 for none, and
/// whatever number the server wrote, below 0 too.
int httpcGetContentLength(httpc_client *client);

// For users of the library; the program does not call what follows.

/// Appends a request header: 0, or -1 for a null name or without memory. A null value is stored and
/// not sent; the first value of a name is the one that counts.
int httpcAddHeader(httpc_client *client, const char *name, const char *value);

/// Appends a request variable, likewise. A GET carries the variables in its path, a POST as body.
int httpcPushVar(httpc_client *client, const char *name, const char *value);

/// The first value of the header with exactly this name; null when there is none.
const char *httpcGetHeader(httpc_client *client, const char *name);

/// The first value of the variable with exactly this name; null when there is none.
const char *httpcGetVar(httpc_client *client, const char *name);

/// Sets `*out` to bytes of the body inside the client, good until the next call: their count, at
/// most `wanted`; 0 at the end, with `*out` null and the socket closed; -1.
int httpcRecvResponse(httpc_client *client, char **out, int wanted);

/// The response's content type, empty when it had none.
char *httpcGetContentType(httpc_client *client);

/// The next unread byte in the receive buffer, and the buffer's start.
char *httpcGetContent(httpc_client *client);
char *httpcProcessResponse(httpc_client *client);

/// Free a list and leave it empty.
void httpcFreeVars(httpc_client *client);
void httpcFreeHeaders(httpc_client *client);

/// Ends the client and frees it: 0. A connected peer first gets the byte "0", unencrypted. Nothing
/// is sent where the socket was closed before.
int httpcCloseClient(httpc_client *client);
