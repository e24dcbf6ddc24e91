// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/extra_body.h"

#include <cstring>

#include "httpc/connection.h"
#include "httpc/cprotocol.h"
#include "httpc/httpc.h"
#include "platform/diagnostic.h"

int httpcRecvResponse(httpc_client *client, char **out, int wanted)
{
    httpc_response *response = &client->response;
    if (wanted < 1)
        return -1;
    if (response->available < 0) {
        diagnose_recv(diagnostic_here(diagnostic_httpc));
        return -1;
    }
    if (response->available == 0 && response->end_of_data != 1 &&
        _httpc_read_response(client) < 0) {
        _httpc_set_error(client);
        diagnose_recv(diagnostic_here(diagnostic_httpc));
        return -1;
    }
    if (response->available == 0) {
        *out = nullptr;
        _httpc_drop_socket(client);
        return 0;
    }
    *out = response->buffer + response->read_position;
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

// NOLINTBEGIN(bugprone-reserved-identifier): see the header

int _httpc_read_response(httpc_client *client)
{
    memset(client->response.buffer, 0, httpc_refill_size + 1);
    client->response.read_position = 0;
    return _httpc_recv(client);
}

// NOLINTEND(bugprone-reserved-identifier)
