// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/httpc.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "httpc/http-priv.h"
#include "httpc/httpc_client.h"
#include "httpc/sslcli.h"
#include "platform/diagnostic.h"
#include "platform/text.h"

namespace {

constexpr diagnostic_unit unit = diagnostic_httpc;

} // namespace

int httpcParseURL(const char *url, char *scheme, char *host, uint16_t *port, char *path)
{
    if (_http_parse_url(url, scheme, host, port, path) >= 0)
        return 0;
    diagnose_recv(diagnostic_here(unit));
    return -1;
}

httpc_client *httpcOpenClient(const char *host, uint16_t port, int use_tls)
{
    if (host == nullptr || port == 0)
        return nullptr;
    if (strlen(host) >= httpc_host_size) {
        diagnose_recv(diagnostic_here(unit));
        return nullptr;
    }
    auto *client = static_cast<httpc_client *>(calloc(1, sizeof(httpc_client)));
    if (client == nullptr)
        return nullptr;
    client->socket = -1;
    client->port = port;
    safe_strncpy(client->host, host, sizeof(client->host));
    fprintf(stderr, "host: %s, port: %d\n", host, port);
    if (use_tls != 0) {
        client->tls = create_cyassl_client();
        if (client->tls == nullptr) { // kept: the record is not freed; the run ends with this
            // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): see above
            diagnose(diagnostic_here(unit), "FUNCTION FAILED!\n");
            // cppcheck-suppress memleak ; see above
            return nullptr;
        }
    }
    return client;
}

int httpcInitRequest(httpc_client *client, int method, const char *path)
{
    // Kept: the response stays, and so does its flag that it was parsed.
    client->request = {};
    client->content_length = 0;
    safe_strncpy(client->request.host, client->host, sizeof(client->request.host));
    safe_strncpy(client->request.path, path, sizeof(client->request.path));
    client->request.method = method;
    client->request.port = client->port;
    return 0;
}

int httpcSetContentType(httpc_client *client, const char *type)
{
    safe_strncpy(client->request.content_type, type == nullptr ? "" : type,
                 sizeof(client->request.content_type));
    return 0;
}

int httpcGetContentLength(httpc_client *client)
{
    return client->content_length;
}
