// SPDX-License-Identifier: GPL-2.0-or-later
//
// For users of the library; the program does not: variables and headers of one's own, what else a
// response can be asked, and the client's end. The operations are in httpc.h.
#include "httpc/httpc.h"

#include <cstdlib>
#include <unistd.h>

#include "httpc/connection.h"
#include "httpc/httpc_client.h"
#include "httpc/sslcli.h"

int httpcAddHeader(httpc_client *client, const char *name, const char *value)
{
    return _httpc_add_var(&client->headers, name, value);
}

int httpcPushVar(httpc_client *client, const char *name, const char *value)
{
    return _httpc_add_var(&client->variables, name, value);
}

const char *httpcGetHeader(httpc_client *client, const char *name)
{
    return _httpc_get_var(&client->headers, name);
}

const char *httpcGetVar(httpc_client *client, const char *name)
{
    return _httpc_get_var(&client->variables, name);
}

char *httpcGetContentType(httpc_client *client)
{
    return client->response.content_type;
}

char *httpcGetContent(httpc_client *client)
{
    return client->response.buffer + client->response.read_position;
}

char *httpcProcessResponse(httpc_client *client)
{
    return client->response.buffer;
}

void httpcFreeVars(httpc_client *client)
{
    _httpc_free_vars(&client->variables);
}

void httpcFreeHeaders(httpc_client *client)
{
    _httpc_free_vars(&client->headers);
}

int httpcCloseClient(httpc_client *client)
{
    if (client->socket > 0) {
        // Kept: the farewell goes out raw, under TLS too, before the socket is closed.
        const ssize_t ignored = write(client->socket, "0", 1);
        (void)ignored;
        _httpc_drop_socket(client);
    }
    httpcFreeVars(client);
    httpcFreeHeaders(client);
    if (client->tls != nullptr)
        client->tls->ops->release(client->tls);
    free(client);
    return 0;
}
