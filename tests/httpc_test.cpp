// SPDX-License-Identifier: GPL-2.0-or-later
//
// The HTTP client with peers that live in scripts. TLS is met on whole runs.
#include "httpc/httpc.h"

#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <unistd.h>
#include <utility>

#include "fuzz/support/world.h"
#include "httpc/httpc_client.h"

using std::string;

namespace {

/// A client that is connected.
struct Httpc : testing::Test {
    fuzz::world world;
    std::optional<fuzz::run> run;
    httpc_client *client = nullptr;

    void SetUp() override
    {
        start("");
        attach("");
    }
    /// A client that is not, in a world with this script.
    void start(const string &text)
    {
        run.reset();
        world = {.script = {text.begin(), text.end()}, .refuses = true};
        run.emplace(&world);
        client = httpcOpenClient("host.example", 8080, 0);
        httpcInitRequest(client, 1, "/a");
    }
    /// Leaves the connection for one to a peer with this script.
    void attach(const string &script)
    {
        if (client->socket >= 0)
            close(client->socket);
        client->response = {};
        client->socket = fuzz::run::connected_to(script);
    }
    void TearDown() override
    {
        httpcCloseClient(client);
        EXPECT_EQ(fuzz::run::open_descriptors(), 0U);
        EXPECT_EQ(fuzz::run::allocations(), 0U);
    }
    /// The status of the response `bytes`, which nothing follows.
    int status_of(const string &bytes)
    {
        attach(bytes);
        return httpcGetResponse(client, 1);
    }
    /// What the peer has received since it was asked last.
    string sent()
    {
        return std::exchange(world.connections.back().received, "");
    }
};

/// A head and filler behind it, as long as one refill needs.
string padded(const string &head, size_t size = 1024)
{
    return head + "\r\n" + string(size - head.size() - 2, 'x');
}

TEST_F(Httpc, SendsRequestsByteForByte)
{
    const string line = "Accept-Language: zh-cn\r\n", host = "Host: host.example\r\n";
    const string common = " HTTP/1.0\r\n" + line + "Content-Length: 0\r\n" + host;
    const struct {
        int method;
        const char *path, *type, *value;
        string bytes;
    } rows[] = {
        {1, "/a?x=1", nullptr, "v w", "GET /a?x=1&n=v+w" + common + "\r\n"},
        {2, "", "text/html", "/",
         "POST  HTTP/1.0\r\n" + line + "Content-type: text/html\r\nContent-Length: 5\r\n" + host +
             "\r\nn=%2F"},
        {1, "/a", nullptr, nullptr, "GET /a" + common + "\r\n"},
    };
    for (const auto &row : rows) {
        httpcFreeVars(client);
        httpcInitRequest(client, row.method, row.path);
        httpcSetContentType(client, row.type);
        httpcPushVar(client, " \tn", row.value);
        EXPECT_EQ(httpcSendRequest(client), static_cast<int>(row.bytes.size()) + 13);
        EXPECT_EQ(sent(), row.bytes);
    }
    httpcFreeVars(client);
    httpcInitRequest(client, 1, string(200, 'p').c_str());
    httpcAddHeader(client, "Long", string(512 - 8, 'v').c_str()); // one byte too many with its end
    httpcAddHeader(client, "Null", nullptr);
    httpcAddHeader(client, "X", "1");
    httpcAddHeader(client, "X", "2");
    httpcSendRequest(client);
    EXPECT_EQ(sent(), "GET " + string(127, 'p') + common + "X: 1\r\n\r\n");
    httpcPushVar(client, "n", string(254, 'v').c_str()); // with its terminator 257 bytes
    EXPECT_EQ(httpcSendRequest(client), -1);
    EXPECT_EQ(client->socket, -1);
}

TEST_F(Httpc, FailsASendToAClosedPeerAndToOneThatDoesNotRead)
{
    // A write to a peer that does not read is 0, which is no failure; 30 of them in a row are.
    world.writable = [] { return false; };
    for (int i = 0; i < 29 - 6; i++) // a request has six writes, and one a header
        httpcAddHeader(client, ("N" + std::to_string(i)).c_str(), "v");
    EXPECT_GT(httpcSendRequest(client), 0);
    EXPECT_EQ(world.waited_seconds, 2);
    httpcAddHeader(client, "L", "v");
    EXPECT_EQ(httpcSendRequest(client), -1);
    EXPECT_EQ(client->socket, -1);
    EXPECT_STREQ(client->request.error_text, "Connection timed out");
    attach("");
    httpcAddHeader(client, "M", "v");
    world.writable = [] {
        static int writes = 0;
        return ++writes == 15;
    };
    EXPECT_GT(httpcSendRequest(client), 0); // not in a row
    world.writable = nullptr;
    attach(PEER_RESETS);
    EXPECT_EQ(httpcSendRequest(client), -1);
    EXPECT_EQ(client->socket, -1);
    EXPECT_STREQ(client->request.error_text, "Broken pipe");
    client->socket = FD_SETSIZE; // more than a set holds
    EXPECT_EQ(httpcSendRequest(client), -1);
    EXPECT_STREQ(client->request.error_text, "Bad file descriptor");
    start("");
    EXPECT_EQ(httpcSendRequest(client), -1); // the connect is refused
    EXPECT_STREQ(client->request.error_text, "Bad file descriptor");
}

TEST_F(Httpc, ReadsHeadsOfEveryShapeFromFullRefills)
{
    const string ok = "HTTP/1.0 200 OK\n", nul(1, '\0');
    const string away = "Location: http://127.0.0.2:1/\r\n"; // refused
    const struct {
        string head;
        int status, length;
        string name, value; ///< a header expected, "" the content type, "reason" the reason
        size_t size = 1024;
    } rows[] = {
        {"HTTP/1.0 200 OK\r\nContent-length: 1234\r\n", 200, 1234, "reason", "OK"},
        {"http/1.1 404 Not Found\n", 404, 0, "reason", "Not Found"},
        {"HTTP/1.0 200 \r\nCONTENT-TYPE: a/b\r\nContent-Length:55\r\n", 200, 0, "", "a/b"},
        {ok + "Cookie: a=1; b=2\nX:\nno colon\nY:1\n", 200, 0, "b", "2"},
        {ok + "X: before\nY:1\n", 200, 0, "Y", ""},
        {ok + "X: before\nZ:\n", 200, 0, "Z", ""},
        {ok + "Cookie:;=;x\nCookie:\nContent-Length: -7\n", 200, -7, "x", "none"},
        {"HTTP/1.0 200 " + string(200, 'r') + "\n", 200, 0, "reason", string(127, 'r')},
        {ok + "Content-Type: " + string(80, 't') + "\n", 200, 0, "", string(63, 't')},
        {ok + nul + "\nContent-Length: 5\n", 200, 0, "x", "none"},
        {ok + "X: " + string(509, 'v') + "\nContent-Length: 5\n", 200, 0, "x", "none"},
        {ok + "Content-Length: 99999999999\n", 200, INT32_MAX, "x", "none"},
        {"HTTP/1.0 200\r\n", -1, 0, "x", "none"},
        {"ICY 200 OK\r\n", -1, 0, "x", "none"},
        // Redirects that it does not follow, and those that it cannot.
        {"HTTP/1.0 300 X\r\n" + away, 300, 0, "x", "none"},
        {"HTTP/1.0 303 X\r\n" + away, 303, 0, "x", "none"},
        {"HTTP/1.0 302 X\r\nlocation: /\r\n", 302, 0, "location", "/"},
        {"HTTP/1.0 302 X\r\nLocation: \r\n", -1, 0, "x", "none"},
        {"HTTP/1.0 301 X\r\n" + away, -1, 0, "x", "none"},
        {"HTTP/1.0 302 X\r\nLocation: http://h/" + string(120, 'p') + "\r\n", -1, 0, "x", "none"},
        {ok, -1, 0, "x", "none", 1023},
        {ok + "X: " + string(1021, 'v') + "\n", 200, 0, "x", "none", 1025 + 1024},
        {ok + "X: " + string(1021, 'v') + "\n", -1, 0, "x", "none", 1025 + 1023},
        {ok + string(65536 - 17, '\r') + "\n", 200, 0, "x", "none", 67000},
        {ok + string(65536 - 16, '\r') + "\n", -1, 0, "x", "none", 67000},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(status_of(padded(row.head, row.size)), row.status) << row.head;
        EXPECT_EQ(httpcGetContentLength(client), row.length) << row.head;
        const char *value = row.name.empty()       ? httpcGetContentType(client)
                            : row.name == "reason" ? client->response.reason
                                                   : httpcGetHeader(client, row.name.c_str());
        EXPECT_EQ(value == nullptr ? "none" : value, row.value) << row.head;
        EXPECT_EQ(client->socket < 0, row.status < 0) << row.head;
    }
}

TEST_F(Httpc, HandsOutTheBodyByCopyAndInPlace)
{
    ASSERT_EQ(status_of(padded("HTTP/1.0 200 OK\r\n\r\nABCD", 1040)), 200);
    char body[2000];
    EXPECT_EQ(httpcReadResponse(client, body, 3), 3);
    EXPECT_EQ(memcmp(body, "ABC", 3), 0);
    EXPECT_EQ(httpcGetResponse(client, 1), 0);                       // it has been got
    EXPECT_EQ(httpcReadResponse(client, body, 2000), 1025 - 19 - 3); // the client's own bytes
    EXPECT_EQ(body[0], 'D');
    EXPECT_EQ(httpcReadResponse(client, body, 2000), 15); // the connection's
    EXPECT_EQ(world.waited_seconds, 300);
    EXPECT_EQ(httpcReadResponse(client, body, 2000), 0);
    EXPECT_EQ(client->socket, -1);
    ASSERT_EQ(status_of(padded("HTTP/1.0 200 OK\r\n\r\nABCD", 1025) + "EFG"), 200);
    char *out = nullptr;
    EXPECT_EQ(httpcRecvResponse(client, &out, 2), 2);
    EXPECT_EQ(memcmp(out, "AB", 2), 0);
    EXPECT_EQ(httpcRecvResponse(client, &out, 5000), 1025 - 19 - 2);
    EXPECT_EQ(httpcRecvResponse(client, &out, 5000), 3); // short refills count for a body
    EXPECT_EQ(memcmp(out, "EFG", 3), 0);
    EXPECT_EQ(httpcRecvResponse(client, &out, 1), 0);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(client->socket, -1);
}

TEST_F(Httpc, FollowsRedirectsAndReturnsThroughEach)
{
    const string own = "Location: http://127.0.0.1:1/b\r\n";
    const string other = "Location: http://127.0.0.2:99\r\n";
    start(padded("HTTP/1.0 304 X\r\n" + own) + PEER_CLOSE + padded("HTTP/1.0 301 X\r\n" + other) +
          PEER_CLOSE + padded("HTTP/1.0 200 OK\r\n"));
    strcpy(client->host, "127.0.0.3"); // where a redirect to 127.0.0.1 leads
    httpcInitRequest(client, 1, "/a");
    httpcPushVar(client, "n", "v"); // for the first request alone
    ASSERT_GT(httpcSendRequest(client), 0);
    EXPECT_EQ(httpcGetResponse(client, 1), 200);
    EXPECT_EQ(httpcGetHeader(client, "Location"), nullptr); // another response's
    const string common = " HTTP/1.0\r\nAccept-Language: zh-cn\r\nContent-Length: 0\r\n"
                          "Host: 127.0.0.3\r\n";
    string asked;
    for (const fuzz::connection &peer : world.connections)
        asked += peer.address + " " + peer.received;
    EXPECT_EQ(asked, "127.0.0.3:8080 GET /a?n=v" + common + "\r\n127.0.0.3:8080 GET /b" + common +
                         own + "\r\n127.0.0.2:99 GET " + common + other + "\r\n");
    EXPECT_EQ(fuzz::run::open_descriptors(), 1U);
}

} // namespace
