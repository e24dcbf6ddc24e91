// SPDX-License-Identifier: GPL-2.0-or-later
//
// The response operations of httpc.h; diagnostics name that unit.
#include "httpc/httpc.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "httpc/cprotocol.h"
#include "httpc/http-priv.h"
#include "httpc/httpc_client.h"
#include "httpc/sslcli.h"

namespace {

constexpr char unit[] = "httpc.c";

/// What became of a response whose head was read.
enum disposal : int { disposal_failed = -1, disposal_final = 0, disposal_sent_again = 1 };

void recv_error(const char *function = __builtin_FUNCTION(), int line = __builtin_LINE())
{
    _http_recv_error(unit, function, line);
}

void trace_tls(const httpc_client *client, int line = __builtin_LINE())
{
    fprintf(stderr, "%s:httpcGetResponse:%d: client->ssl = %p\n", unit, line,
            static_cast<const void *>(client->tls));
}

/// Reads a head into a client without headers or variables: 0, or -1 with the socket closed.
int read_head(httpc_client *client, int keep_headers)
{
    client->content_length = 0;
    httpcFreeVars(client);
    httpcFreeHeaders(client);
    client->response.keep_headers = keep_headers;
    const int result = _httpc_parse_response(client);
    trace_tls(client);
    if (result < 0) {
        _httpc_set_error(client);
        recv_error("httpcGetResponse");
        return -1;
    }
    client->response.parsed = 1;
    return 0;
}

/// Sends the request again to where `Location` points.
disposal dispose_redirect(httpc_client *client, const char *function)
{
    const char *location = httpcGetHeader(client, "Location");
    if (location == nullptr) {
        recv_error(function);
        return disposal_final;
    }
    char scheme[8] = {};
    memset(client->request.host, 0, sizeof(client->request.host));
    memset(client->request.path, 0, sizeof(client->request.path));
    if (httpcParseURL(location, scheme, client->request.host, &client->request.port,
                      client->request.path) < 0) {
        recv_error(function);
        return disposal_failed;
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
            fprintf(stderr, "%s:%s:%d: FUNCTION FAILED!\n", unit, function, __LINE__);
            return disposal_failed;
        }
    }
    if (httpcSendRequest(client) < 0) {
        recv_error(function);
        return disposal_failed;
    }
    memset(&client->response, 0, sizeof(client->response));
    return disposal_sent_again;
}

/// Follows the statuses that redirect. Kept: 304 is one of them, 300, 303, 307 and 308 are not.
disposal dispose_response(httpc_client *client)
{
    const int status = client->response.status;
    if ((status > 300 && status <= 302) || status == 304)
        return dispose_redirect(client, "_httpc_dispose_redirect");
    return disposal_final;
}

/// What ends `httpcGetResponse` once its response, or one that it led to, was disposed of.
int finish_response(httpc_client *client, int result)
{
    trace_tls(client);
    if (result >= 0)
        return client->response.status;
    _httpc_set_error(client);
    recv_error("httpcGetResponse");
    return -1;
}

} // namespace

int httpcGetResponse(httpc_client *client, int keep_headers)
{
    if (client->response.parsed == 1)
        return 0;
    // A response that was redirected to is this function once more. It is a loop all the same, so
    // that no server can grow the stack, and what each turn says on its way back is said below.
    uint64_t depth = 0;
    disposal disposed = disposal_failed;
    int result = read_head(client, keep_headers);
    while (result >= 0 && (disposed = dispose_response(client)) == disposal_sent_again) {
        depth++;
        result = read_head(client, keep_headers);
    }
    if (result >= 0)
        result = finish_response(client, disposed);
    for (; depth > 0; depth--) {
        if (result < 0)
            recv_error("_httpc_dispose_redirect");
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
        memcpy(buffer, httpcGetContent(client), static_cast<size_t>(count));
        response->available -= count;
        response->read_position = response->available == 0 ? 0 : response->read_position + count;
        return count;
    }
    const int count = size < 0 ? -1 : _httpc_net_read(client, buffer, size);
    if (count < 0) {
        _httpc_set_error(client);
        recv_error();
    } else if (count == 0) {
        _httpc_drop_socket(client);
    }
    return count;
}

int httpcRecvResponse(httpc_client *client, char **out, int wanted)
{
    httpc_response *response = &client->response;
    if (wanted < 1)
        return -1;
    if (response->available < 0) {
        recv_error();
        return -1;
    }
    if (response->available == 0 && response->end_of_data != 1 &&
        _httpc_read_response(client) < 0) {
        _httpc_set_error(client);
        recv_error();
        return -1;
    }
    if (response->available == 0) {
        *out = nullptr;
        _httpc_drop_socket(client);
        return 0;
    }
    *out = httpcGetContent(client);
    if (response->available >= wanted) {
        response->available -= wanted;
        response->read_position += wanted;
        return wanted;
    }
    const int count = response->available;
    response->available = 0;
    response->read_position = 0;
    return count;
}
