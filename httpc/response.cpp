// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/response.h"

#include <algorithm>
#include <cstring>

#include "httpc/connection.h"
#include "httpc/cprotocol.h"
#include "httpc/http-priv.h"
#include "httpc/httpc.h"
#include "httpc/sslcli.h"
#include "platform/diagnostic.h"

namespace {

constexpr diagnostic_unit unit = diagnostic_httpc;

/// The place of the call in what is one function to readers of logs.
constexpr diagnostic_place in_get_response(int line = __builtin_LINE())
{
    return {.unit = unit, .number = line, .function = "httpcGetResponse"};
}

void trace_tls(const httpc_client *client, diagnostic_place place)
{
    diagnose(place, "client->ssl = %p\n", static_cast<const void *>(client->tls));
}

/// Reads a head into a client without headers or variables: 0, or -1 with the socket closed.
int read_head(httpc_client *client, int keep_headers)
{
    client->content_length = 0;
    _httpc_free_vars(&client->variables);
    _httpc_free_vars(&client->headers);
    client->response.keep_headers = keep_headers;
    const int result = _httpc_parse_response(client);
    trace_tls(client, in_get_response());
    if (result < 0) {
        _httpc_set_error(client);
        diagnose_recv(in_get_response());
        return -1;
    }
    client->response.parsed = 1;
    return 0;
}

/// What ends `httpcGetResponse` once its response, or one that it led to, was disposed of.
int finish_response(httpc_client *client, int result)
{
    trace_tls(client, in_get_response());
    if (result >= 0)
        return client->response.status;
    _httpc_set_error(client);
    diagnose_recv(in_get_response());
    return -1;
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): see the header

int _httpc_dispose_response(httpc_client *client)
{
    // Kept: 304 is one of those that redirect, 300, 303, 307 and 308 are not.
    const int status = client->response.status;
    if ((status > 300 && status <= 302) || status == 304)
        return _httpc_dispose_redirect(client);
    return httpc_response_final;
}

int _httpc_dispose_redirect(httpc_client *client)
{
    const char *location = _httpc_get_var(&client->headers, "Location");
    if (location == nullptr) {
        diagnose_recv(diagnostic_here(unit));
        return httpc_response_final;
    }
    char scheme[8] = {};
    memset(client->request.host, 0, sizeof(client->request.host));
    memset(client->request.path, 0, sizeof(client->request.path));
    if (httpcParseURL(location, scheme, client->request.host, &client->request.port,
                      client->request.path) < 0) {
        diagnose_recv(diagnostic_here(unit));
        return -1;
    }
    client->redirect = 0;
    _httpc_drop_socket(client);
    if (client->tls != nullptr) {
        client->tls->ops->release(client->tls);
        client->tls = nullptr;
    }
    if (strcmp(scheme, "HTTPS") == 0) {
        client->tls = create_cyassl_client();
        if (client->tls == nullptr) {
            diagnose(diagnostic_here(unit), "FUNCTION FAILED!\n");
            return -1;
        }
    }
    if (httpcSendRequest(client) < 0) {
        diagnose_recv(diagnostic_here(unit));
        return -1;
    }
    memset(&client->response, 0, sizeof(client->response));
    return httpc_response_follows;
}

// NOLINTEND(bugprone-reserved-identifier)

int httpcGetResponse(httpc_client *client, int keep_headers)
{
    if (client->response.parsed == 1)
        return 0;
    // A response that was redirected to is this function once more. It is a loop all the same, so
    // that no server can grow the stack, and what each turn says on its way back is said below.
    uint64_t depth = 0;
    int disposed = -1;
    int result = read_head(client, keep_headers);
    while (result >= 0 && (disposed = _httpc_dispose_response(client)) == httpc_response_follows) {
        depth++;
        result = read_head(client, keep_headers);
    }
    if (result >= 0)
        result = finish_response(client, disposed);
    for (; depth > 0; depth--) {
        if (result < 0)
            diagnose_recv({unit, __LINE__, "_httpc_dispose_redirect"});
        result = finish_response(client, result);
    }
    return result;
}

int httpcReadResponse(httpc_client *client, void *buffer, int size)
{
    httpc_response *response = &client->response;
    if (client->socket < 0)
        return 0;
    if (size >= 0 && response->available > 0) {
        const int count = std::min(response->available, size);
        memcpy(buffer, response->buffer + response->read_position, static_cast<size_t>(count));
        response->available -= count;
        response->read_position = response->available == 0 ? 0 : response->read_position + count;
        return count;
    }
    const int count = size < 0 ? -1 : _httpc_net_read(client, buffer, size);
    if (count < 0) {
        _httpc_set_error(client);
        diagnose_recv(diagnostic_here(unit));
    } else if (count == 0) {
        _httpc_drop_socket(client);
    }
    return count;
}
