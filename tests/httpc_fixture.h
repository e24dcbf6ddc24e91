// SPDX-License-Identifier: GPL-2.0-or-later
//
// An HTTP client on a socket whose other end is the test's.
#pragma once

#include <csignal>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "httpc/httpc.h"
#include "httpc/httpc_client.h"

/// A connected socket; the other end goes to `peer`.
inline int pair_with(int *peer)
{
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    *peer = ends[1];
    return ends[0];
}

inline void send_last(int socket, const std::string &bytes)
{
    EXPECT_EQ(write(socket, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    shutdown(socket, SHUT_WR);
}

inline std::string read_at_once(int socket)
{
    std::string bytes(4096, '\0');
    const ssize_t count = recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
    return count < 0 ? "" : bytes.substr(0, static_cast<size_t>(count));
}

/// A client whose socket is one end of a pair; `peer` is the other.
struct Httpc : testing::Test {
    httpc_client *client = nullptr;
    int peer = -1;

    void SetUp() override
    {
        signal(SIGPIPE, SIG_IGN);
        client = httpcOpenClient("host.example", 8080, 0);
        httpcInitRequest(client, 1, "/a");
        attach();
    }
    void attach()
    {
        if (peer >= 0)
            close(peer);
        client->response = {};
        client->socket = pair_with(&peer);
    }
    void TearDown() override
    {
        httpcCloseClient(client);
        close(peer);
    }
    /// The status of the response `bytes`, which nothing follows.
    int status_of(const std::string &bytes, int keep_headers = 1)
    {
        attach();
        send_last(peer, bytes);
        return httpcGetResponse(client, keep_headers);
    }
};

/// A head and filler behind it, as long as one refill needs.
inline std::string padded(const std::string &head, size_t size = 1024)
{
    return head + "\r\n" + std::string(size - head.size() - 2, 'x');
}
