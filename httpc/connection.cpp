// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/connection.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "httpc/http-priv.h"
#include "httpc/sslcli.h"
#include "platform/diagnostic.h"
#include "platform/text.h"

namespace {

void store_error(httpc_client *client)
{
    safe_strncpy(client->request.error_text, strerror(errno), sizeof(client->request.error_text));
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): see the header

int _httpc_connect(httpc_client *client)
{
    // Kept: TLS connects to the client's own host, wherever a redirect points.
    client->socket = client->tls != nullptr
                         ? client->tls->ops->connect(client->tls, client->host, client->port)
                         : _http_net_connect(client->host, client->port, client->request.host,
                                             client->request.port, client->connect_timeout_seconds);
    if (client->socket >= 0)
        return 0;
    diagnose_recv({diagnostic_httpc, __LINE__, "httpcSendRequest"});
    store_error(client);
    return -1;
}

void _httpc_drop_socket(httpc_client *client)
{
    close(client->socket);
    client->socket = -1;
    if (client->tls != nullptr)
        client->tls->socket = -1;
}

int _httpc_set_error(httpc_client *client)
{
    _httpc_drop_socket(client);
    store_error(client);
    return 0;
}

// NOLINTEND(bugprone-reserved-identifier)
