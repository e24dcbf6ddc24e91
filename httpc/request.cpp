// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/request.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "httpc/connection.h"
#include "httpc/extra_texts.h"
#include "httpc/http-priv.h"
#include "httpc/httpc.h"
#include "platform/diagnostic.h"

namespace {

constexpr int body_piece_size = 512;
constexpr int accept_language_count = 37; // kept: what the line's 24 bytes add to the count
constexpr int unready_write_limit = 30;   // of 2 s each: a peer that reads nothing for a minute

/// The place of the call. To readers of logs all of this file is one function.
constexpr diagnostic_place here(int line = __builtin_LINE())
{
    return {.unit = diagnostic_httpc, .number = line, .function = "httpcSendRequest"};
}

/// One write of the request: 0, or -1 with a diagnostic of `place` and the socket closed.
int send_bytes(httpc_client *client, diagnostic_place place, const char *bytes, int length)
{
    if (_http_net_write(client, bytes, length) >= 0) {
        // A write that was given up counts as sent, but a request of thousands of headers, which a
        // redirect can ask for, must not wait hours for a peer that does not read.
        if (client->unready_writes < unready_write_limit)
            return 0;
        errno = ETIMEDOUT;
    }
    diagnose_recv(place);
    _httpc_set_error(client);
    return -1;
}

/// Formats and sends one line: the bytes to count, or -1. A line that does not fit is left out: a
/// redirect sends the response's headers again, and they may be of any length.
__attribute__((format(printf, 3, 4))) int send_line(httpc_client *client, diagnostic_place place,
                                                    const char *format, ...)
{
    char line[httpc_line_size] = {};
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start has just made it
    const int length = vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    if (length < 0 || length >= httpc_line_size) {
        diagnose_recv(place);
        return 0;
    }
    return send_bytes(client, place, line, length) < 0 ? -1 : length;
}

/// The first line with its trace: the bytes to count, or -1.
int send_first_line(httpc_client *client)
{
    char line[httpc_line_size];
    const int length = _httpc_encode_first_line(client, line, sizeof(line));
    fprintf(stderr, "write(%d, (%s), %d)\n", client->socket, line, length);
    return send_bytes(client, here(), line, length) < 0 ? -1 : length;
}

/// The lines after the first and the empty line that ends the head: the bytes to count, or -1.
int send_headers(httpc_client *client)
{
    int total = accept_language_count;
    if (send_line(client, here(), "Accept-Language: zh-cn\r\n") < 0)
        return -1;
    int count = 0;
    if (client->request.content_type[0] != '\0') {
        if ((count = send_line(client, here(), "Content-type: %s\r\n",
                               client->request.content_type)) < 0)
            return -1;
        total += count;
    }
    client->content_length = static_cast<int32_t>(strlen(client->request.encoded_variables));
    if ((count = send_line(client, here(), "Content-Length: %d\r\n", client->content_length)) < 0)
        return -1;
    total += count;
    // Kept: the client's host without its port, after a redirect too.
    if ((count = send_line(client, here(), "Host: %s\r\n", client->host)) < 0)
        return -1;
    total += count;
    for (const httpc_var *node = client->headers.first; node != nullptr; node = node->next) {
        if (node->value == nullptr)
            continue;
        if ((count = send_line(client, here(), "%s: %s\r\n", node->name, node->value)) < 0)
            return -1;
        total += count;
    }
    if ((count = send_line(client, here(), "\r\n")) < 0)
        return -1;
    return total + count;
}

/// The body, in pieces: its length, or -1.
int send_body(httpc_client *client)
{
    const char *body = client->request.encoded_variables;
    int left = client->content_length;
    for (; left >= body_piece_size; left -= body_piece_size, body += body_piece_size) {
        if (send_bytes(client, here(), body, body_piece_size) < 0)
            return -1;
    }
    // Kept: the rest is written also when there is none.
    return send_bytes(client, here(), body, left) < 0 ? -1 : client->content_length;
}

} // namespace

int httpcSendRequest(httpc_client *client)
{
    if (client->socket < 0 && _httpc_connect(client) < 0)
        return -1;
    client->unready_writes = 0;
    if (_httpc_encode_vars(client) < 0) {
        diagnose_recv(here());
        _httpc_set_error(client);
        return -1;
    }
    const int first_line = send_first_line(client);
    const int headers = first_line < 0 ? -1 : send_headers(client);
    const int body = headers < 0 ? -1 : send_body(client);
    return body < 0 ? -1 : first_line + headers + body;
}

// NOLINTBEGIN(bugprone-reserved-identifier): see the header

int _httpc_encode_vars(httpc_client *client)
{
    char *encoded = client->request.encoded_variables;
    for (const httpc_var *node = client->variables.first; node != nullptr; node = node->next) {
        if (node->value != nullptr &&
            _encode_contents(node->name, node->value, encoded, httpc_encoded_size) < 0)
            return -1;
    }
    return 0;
}

int _httpc_encode_first_line(httpc_client *client, char *buffer, int size)
{
    httpc_request *request = &client->request;
    const auto room = static_cast<size_t>(size);
    memset(buffer, 0, room);
    if (request->method == httpc_method_post)
        return snprintf(buffer, room, "POST %s HTTP/1.0\r\n", request->path);
    if (request->method != httpc_method_get)
        return 0;
    if (request->encoded_variables[0] == '\0')
        return snprintf(buffer, room, "GET %s HTTP/1.0\r\n", request->path);
    const char *separator = strchr(request->path, '?') == nullptr ? "?" : "&";
    const int length = snprintf(buffer, room, "GET %s%s%s HTTP/1.0\r\n", request->path, separator,
                                request->encoded_variables);
    memset(request->encoded_variables, 0, sizeof(request->encoded_variables));
    return length;
}

// NOLINTEND(bugprone-reserved-identifier)
