// SPDX-License-Identifier: GPL-2.0-or-later
//
// An HTTP client whose peers live in scripts.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <utility>

#include "httpc/httpc.h"
#include "httpc/httpc_client.h"
#include "tests/played_network.h"

/// A client that is connected.
struct Httpc : testing::Test {
    httpc_client *client = nullptr;

    void SetUp() override
    {
        played = {};
        client = httpcOpenClient("host.example", 8080, 0);
        httpcInitRequest(client, 1, "/a");
        attach("");
    }
    /// Leaves the connection for one to a peer with this script.
    void attach(const std::string &script)
    {
        if (client->socket >= 0)
            close(client->socket);
        client->response = {};
        client->socket = play_connected(script);
    }
    void TearDown() override
    {
        httpcCloseClient(client);
    }
    /// The status of the response `bytes`, which nothing follows.
    int status_of(const std::string &bytes, int keep_headers = 1)
    {
        attach(bytes);
        return httpcGetResponse(client, keep_headers);
    }
    /// What the peer has received since it was asked last.
    static std::string sent()
    {
        return std::exchange(played.peers.back().received, "");
    }
};

/// A head and filler behind it, as long as one refill needs.
inline std::string padded(const std::string &head, size_t size = 1024)
{
    return head + "\r\n" + std::string(size - head.size() - 2, 'x');
}
