// SPDX-License-Identifier: GPL-2.0-or-later
//
// Requests and responses of the HTTP client on a connection that is there.
#include <cstring>
#include <sys/select.h>

#include "tests/httpc_fixture.h"

using std::string;

TEST_F(Httpc, SendsRequestsByteForByte)
{
    const string line = "Accept-Language: zh-cn\r\n", host = "Host: host.example\r\n";
    const string common = " HTTP/1.0\r\n" + line + "Content-Length: 0\r\n" + host;
    const struct {
        int method;
        const char *path, *type, *value;
        string bytes;
    } rows[] = {
        {1, "/a", nullptr, "v w", "GET /a?n=v+w" + common + "\r\n"},
        {1, "/a?x=1", nullptr, "v", "GET /a?x=1&n=v" + common + "\r\n"},
        {2, "", "text/html", "/",
         "POST  HTTP/1.0\r\n" + line + "Content-type: text/html\r\nContent-Length: 5\r\n" + host +
             "\r\nn=%2F"},
        {3, "/a", nullptr, "v", line + "Content-Length: 3\r\n" + host + "\r\nn=v"},
        {1, "/a", nullptr, nullptr, "GET /a" + common + "\r\n"},
    };
    for (const auto &row : rows) {
        httpcFreeVars(client);
        httpcInitRequest(client, row.method, row.path);
        httpcSetContentType(client, row.type);
        httpcPushVar(client, " \tn", row.value);
        httpcPushVar(client, "n", "second");
        EXPECT_STREQ(httpcGetVar(client, "n"), row.value);
        EXPECT_EQ(httpcSendRequest(client), static_cast<int>(row.bytes.size()) + 13);
        EXPECT_EQ(sent(), row.bytes);
    }
    httpcFreeVars(client);
    httpcInitRequest(client, 1, string(200, 'p').c_str());
    EXPECT_EQ(httpcAddHeader(client, nullptr, "v"), -1);
    httpcAddHeader(client, "Long", string(512 - 8, 'v').c_str()); // one byte too many with its end
    httpcSetContentType(client, string(200, 't').c_str());
    httpcAddHeader(client, "Null", nullptr);
    httpcAddHeader(client, "X", "1");
    httpcAddHeader(client, "X", "2");
    const string bytes = "GET " + string(127, 'p') + " HTTP/1.0\r\n" + line +
                         "Content-type: " + string(63, 't') + "\r\nContent-Length: 0\r\n" + host +
                         "X: 1\r\n\r\n";
    EXPECT_EQ(httpcSendRequest(client), static_cast<int>(bytes.size()) + 13);
    EXPECT_EQ(sent(), bytes);
    httpcPushVar(client, "n", string(254, 'v').c_str()); // with its terminator 257 bytes
    EXPECT_EQ(httpcSendRequest(client), -1);
    EXPECT_EQ(client->socket, -1);
}

TEST_F(Httpc, FailsASendToAClosedPeerAndCountsAFullOne)
{
    // A write to a peer that does not read is 0, which is no failure; 30 of them in a row are.
    played.writable = [] { return false; };
    for (int i = 0; i < 29 - 6; i++) // a request has six writes, and one a header
        httpcAddHeader(client, ("N" + std::to_string(i)).c_str(), "v");
    EXPECT_GT(httpcSendRequest(client), 0);
    EXPECT_EQ(played.waited_seconds, 2);
    EXPECT_GT(httpcSendRequest(client), 0); // counted anew
    EXPECT_EQ(sent(), "");
    httpcAddHeader(client, "L", "v");
    EXPECT_EQ(httpcSendRequest(client), -1);
    EXPECT_EQ(client->socket, -1);
    EXPECT_STREQ(client->request.error_text, "Connection timed out");
    attach("");
    httpcAddHeader(client, "M", "v"); // 30 writes in vain, but not in a row
    played.writable = [turn = 0]() mutable { return ++turn == 16; };
    EXPECT_GT(httpcSendRequest(client), 0);
    EXPECT_GT(sent().size(), 0U);
    played.writable = nullptr;
    attach("");
    played.peers.back().resets = true;
    EXPECT_EQ(httpcSendRequest(client), -1);
    EXPECT_EQ(client->socket, -1);
    EXPECT_STREQ(client->request.error_text, "Broken pipe");
}

TEST_F(Httpc, ReadsHeadsOfEveryShape)
{
    const string nul(1, '\0');
    const struct {
        string head;
        int status, length;
        string name, value; ///< a header expected, "" the content type, "reason" the reason
    } rows[] = {
        {"HTTP/1.0 200 OK\r\nContent-length: 1234\r\n", 200, 1234, "reason", "OK"},
        {"http/1.1 404 Not Found\n", 404, 0, "reason", "Not Found"},
        {"HTTP/1.0 200 \r\nCONTENT-TYPE: a/b\r\nContent-Length:55\r\n", 200, 0, "", "a/b"},
        {"HTTP/1.0 200 OK\nCookie: a=1; b=2\nX:\nno colon\nY:1\n", 200, 0, "b", "2"},
        {"HTTP/1.0 200 OK\nX: \nY:1\nZ:\n", 200, 0, "Y", ""},
        {"HTTP/1.0 200 OK\nX: before\nZ:\n", 200, 0, "Z", ""},
        {"HTTP/1.0 200 OK\nCookie:;=;x\nCookie:\nContent-Length: -7\n", 200, -7, "x", "none"},
        {"HTTP/1.0 200 " + string(200, 'r') + "\n", 200, 0, "reason", string(127, 'r')},
        {"HTTP/1.0 200 O\r\r\rK\nContent-Type: " + string(80, 't') + "\n", 200, 0, "",
         string(63, 't')},
        {"HTTP/1.0 200 OK\n" + nul + "\nContent-Length: 5\n", 200, 0, "x", "none"},
        {"HTTP/1.0 200 OK\nX: " + string(509, 'v') + "\nContent-Length: 5\n", 200, 0, "x", "none"},
        {"HTTP/1.0 200 OK\nContent-Length: 99999999999\n", 200, INT32_MAX, "x", "none"},
        {"HTTP/1.0 200\r\n", -1, 0, "x", "none"},
        {"ICY 200 OK\r\n", -1, 0, "x", "none"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(status_of(padded(row.head)), row.status) << row.head;
        EXPECT_EQ(httpcGetContentLength(client), row.length) << row.head;
        const char *value = row.name.empty()       ? httpcGetContentType(client)
                            : row.name == "reason" ? client->response.reason
                                                   : httpcGetHeader(client, row.name.c_str());
        EXPECT_EQ(value == nullptr ? "none" : value, row.value) << row.head;
        EXPECT_EQ(client->socket < 0, row.status < 0) << row.head;
    }
    EXPECT_EQ(status_of(padded("HTTP/1.0 200 OK\nCookie: a=1\nB: 2\nContent-Length: 3\n"), 0), 200);
    EXPECT_EQ(httpcGetContentLength(client), 3);
    EXPECT_EQ(client->headers.first, nullptr); // none are kept
}

TEST_F(Httpc, NeedsFullRefillsForTheHeadAndBoundsIt)
{
    const string ok = "HTTP/1.0 200 \xE9K\n", wide = ok + "X: " + string(1021, 'v') + "\r\n";
    const struct {
        string response;
        int status;
    } rows[] = {
        {padded(ok, 1023), -1},
        {padded(ok, 1024), 200},
        {padded(wide, 1025 + 1023), -1},
        {padded(wide, 1025 + 1024), 200},
        {padded(ok + string(65536 - 17, '\r') + "\n", 67000), 200},
        {padded(ok + string(65536 - 16, '\r') + "\n", 67000), -1},
    };
    for (const auto &row : rows) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(status_of(row.response), row.status) << row.response.size();
        const string trace = testing::internal::GetCapturedStderr();
        if (row.status == 200) {
            EXPECT_NE(trace.find(": H-72\n"), string::npos);
            EXPECT_NE(trace.find(": \xE9-233\n"), string::npos);
            EXPECT_EQ(httpcGetResponse(client, 1), 0); // parsed already
        }
        // What a head that failed has left lies within the buffer.
        EXPECT_LE(client->response.read_position + client->response.available, 1025);
    }
}

TEST_F(Httpc, HandsOutTheBodyByCopy)
{
    httpcPushVar(client, "n", "v");
    ASSERT_EQ(status_of(padded("HTTP/1.0 200 OK\r\n\r\nABCD", 1040), 0), 200);
    EXPECT_EQ(httpcGetVar(client, "n"), nullptr); // it was the request's
    char body[2000];
    EXPECT_EQ(httpcReadResponse(client, body, 0), 0);
    EXPECT_EQ(httpcReadResponse(client, body, 3), 3);
    EXPECT_EQ(memcmp(body, "ABC", 3), 0);
    EXPECT_EQ(httpcReadResponse(client, body, 2000), 1025 - 19 - 3); // the client's own bytes
    EXPECT_EQ(body[0], 'D');
    EXPECT_EQ(httpcReadResponse(client, body, 2000), 15); // the connection's
    EXPECT_EQ(played.waited_seconds, 300);
    EXPECT_EQ(httpcReadResponse(client, body, 2000), 0);
    EXPECT_EQ(client->socket, -1);
    EXPECT_EQ(httpcReadResponse(client, body, -1), 0);
    attach("");
    client->response.available = 5;
    EXPECT_EQ(httpcReadResponse(client, body, -1), -1);
    EXPECT_EQ(client->socket, -1);
    attach("");
    close(client->socket);
    played.waited_seconds = 0;
    client->socket = FD_SETSIZE; // in no set of descriptors: not even waited for
    EXPECT_EQ(httpcReadResponse(client, body, 1), 0);
    EXPECT_EQ(played.waited_seconds, 0);
    attach(PEER_SILENCE "late");
    EXPECT_EQ(httpcReadResponse(client, body, 1), 0);
    EXPECT_EQ(client->socket, -1);
}

TEST_F(Httpc, HandsOutTheBodyInPlace)
{
    ASSERT_EQ(status_of(padded("HTTP/1.0 200 OK\r\n\r\nABCD", 1025) + "EFG", 0), 200);
    char *out = nullptr;
    EXPECT_EQ(httpcRecvResponse(client, &out, 0), -1);
    EXPECT_EQ(httpcRecvResponse(client, &out, 2), 2);
    EXPECT_EQ(memcmp(out, "AB", 2), 0);
    EXPECT_EQ(httpcRecvResponse(client, &out, 5000), 1025 - 19 - 2);
    EXPECT_EQ(httpcRecvResponse(client, &out, 5000), 3); // short refills count for a body
    EXPECT_EQ(memcmp(out, "EFG", 3), 0);
    EXPECT_EQ(httpcRecvResponse(client, &out, 1), 0);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(client->socket, -1);
}
