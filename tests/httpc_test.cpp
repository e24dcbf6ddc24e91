// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/httpc.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "httpc/cprotocol.h"
#include "httpc/http-priv.h"
#include "httpc/httpc_client.h"
#include "httpc/sslcli.h"

using std::string;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// The waits of the library, so that no test has to sit them out.
namespace {
int slept_seconds = 0;
bool expire = false; // the next select comes back empty
long waited_seconds = 0;
struct fake_connect {
    int result, error, poll_result;
    short events;
};
constexpr fake_connect refused = {-1, ECONNREFUSED, 0, 0};
fake_connect connecting = refused;
// Servers that a connect reaches when there are any: what each answers, then what became of it.
struct server {
    string answer;
    string address = "";
    int socket = -1;
};
std::vector<server> servers;
size_t servers_reached = 0;

/// A connected socket; the other end goes to `peer`.
int pair_with(int *peer)
{
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    *peer = ends[1];
    return ends[0];
}
void send_last(int socket, const string &bytes)
{
    EXPECT_EQ(write(socket, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    shutdown(socket, SHUT_WR);
}
string read_at_once(int socket)
{
    string bytes(4096, '\0');
    const ssize_t count = recv(socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
    return count < 0 ? "" : bytes.substr(0, static_cast<size_t>(count));
}
} // namespace

#pragma GCC diagnostic ignored "-Wmissing-declarations" // the wraps, by the linker's names

extern "C" {
int __real_select(int, fd_set *, fd_set *, fd_set *, timeval *);
int __wrap_select(int count, fd_set *readable, fd_set *writable, fd_set *other, timeval *wait)
{
    waited_seconds = wait->tv_sec;
    wait->tv_sec = 5; // a test that waits at all has failed
    return expire ? 0 : __real_select(count, readable, writable, other, wait);
}
unsigned __wrap_sleep(unsigned seconds)
{
    slept_seconds += static_cast<int>(seconds);
    return 0;
}
int __wrap_connect(int socket, const sockaddr *address, socklen_t)
{
    if (servers_reached < servers.size()) {
        server &reached = servers[servers_reached++];
        const auto *to = reinterpret_cast<const sockaddr_in *>(address);
        reached.address = inet_ntoa(to->sin_addr) + (":" + std::to_string(ntohs(to->sin_port)));
        const int end = pair_with(&reached.socket);
        dup2(end, socket);
        close(end);
        send_last(reached.socket, reached.answer);
        return 0;
    }
    errno = connecting.error;
    return connecting.result;
}
int __wrap_poll(pollfd *entry, nfds_t, int)
{
    entry->revents = connecting.events;
    return connecting.poll_result;
}
}

namespace {

/// A client whose socket is one end of a pair; `peer` is the other.
struct Httpc : testing::Test {
    httpc_client *client = nullptr;
    int peer = -1;

    void SetUp() override
    {
        signal(SIGPIPE, SIG_IGN);
        expire = false;
        servers.clear();
        servers_reached = 0;
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
    int status_of(const string &bytes, int keep_headers = 1)
    {
        attach();
        send_last(peer, bytes);
        return httpcGetResponse(client, keep_headers);
    }
};

/// A head and filler behind it, as long as one refill needs.
string padded(const string &head, size_t size = 1024)
{
    return head + "\r\n" + string(size - head.size() - 2, 'x');
}

size_t count_of(const string &text, const string &word)
{
    size_t count = 0;
    for (size_t at = text.find(word); at != string::npos; at = text.find(word, at + 1))
        count++;
    return count;
}

} // namespace

TEST(HttpUrl, SplitsAsTheDevicesDo)
{
    const struct {
        string url, parts; ///< "-" is a field that stays as it was
    } rows[] = {
        {"http://h/a/b", "HTTP h 80 /a/b"},
        {"https://h/a", "HTTPS h 443 /a"},
        {"http://h:8080", "HTTP h 8080 -"},
        {"https://h:70000/p", "HTTPS h 4464 /p"}, // 70000 - 65536
        {"http://h:99999999999999999999/p", "HTTP h 65535 /p"},
        {"http://h/x:y", "HTTP h/x 0 -"},
        {"HTTP://h/p", "- HTTP 0 //h/p"},
        {"/upgrade/flash.pkg", "- 127.0.0.1 80 /upgrade/flash.pkg"},
        {"", "-  80 /"},
        {"http://" + string(120, 'h'), "HTTP " + string(120, 'h') + " 80 /"},
    };
    for (const auto &row : rows) {
        char scheme[8] = "-", host[128] = "-", path[128] = "-";
        uint16_t port = 7;
        EXPECT_EQ(httpcParseURL(row.url.c_str(), scheme, host, &port, path), 0) << row.url;
        EXPECT_EQ(string(scheme) + " " + host + " " + std::to_string(port) + " " + path, row.parts);
    }
    EXPECT_EQ(httpcParseURL(nullptr, nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(httpcParseURL(string(128, 'h').c_str(), nullptr, nullptr, nullptr, nullptr), -1);
}

TEST(HttpEscape, EscapesWithinItsLimits)
{
    const struct {
        const char *source;
        int size, result;
        const char *text;
    } rows[] = {
        {"a b/c", 32, 7, "a+b%2Fc"},
        {"~\xE9", 32, 6, "%7E%E9"},
        {"", 1, 0, ""},
        {"ab", 3, 2, "ab"},
        {"abc", 3, -1, "ab"},
        {"/", 4, 3, "%2F"},
        {"/", 3, -1, ""},
        {"a", INT32_MIN, -1, ""},
    };
    for (const auto &row : rows) {
        char out[32] = {};
        EXPECT_EQ(_encode_string(row.source, out, row.size), row.result) << row.source;
        EXPECT_STREQ(out, row.text);
    }
    char out[32] = {};
    EXPECT_EQ(_encode_content("abc", "def", out, 4), 7); // the value has the name's limit
    EXPECT_STREQ(out, "abc=def");
    char pairs[12] = {};
    EXPECT_EQ(_encode_contents("n", "v", pairs, sizeof(pairs)), 3);
    EXPECT_EQ(_encode_contents("m", "12345678", pairs, sizeof(pairs)), -1);
    EXPECT_EQ(_encode_contents("m", "/12", pairs, sizeof(pairs)), 11);
    EXPECT_STREQ(pairs, "n=v&m=%2F12");
}

TEST(HttpEscape, DecodesFormsAndHeaderBlocks)
{
    char out[32];
    _httpc_parse_content(out, "a+b%41c%4Fd%4");
    EXPECT_EQ(memcmp(out, "a b\1c\0d%4", 10), 0);
    httpc_client client = {};
    _httpc_parse_headers(&client, (" A: 123456\r\nB: xy\n\n" + string(40, 'n') + ": " +
                                   string(70, 'v') + "\r\nC:\r\nleft over")
                                      .c_str());
    EXPECT_STREQ(httpcGetHeader(&client, "A"), "123456");
    EXPECT_STREQ(httpcGetHeader(&client, "B"), "xy3456"); // the kept tail
    EXPECT_EQ(httpcGetHeader(&client, string(31, 'n').c_str()), string(63, 'v'));
    EXPECT_NE(httpcGetHeader(&client, "C"), nullptr);
    httpcFreeHeaders(&client);
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
        EXPECT_EQ(read_at_once(peer), row.bytes);
    }
    httpcFreeVars(client);
    httpcInitRequest(client, 1, string(200, 'p').c_str());
    EXPECT_EQ(httpcAddHeader(client, nullptr, "v"), -1);
    httpcAddHeader(client, "Long", string(512 - 8, 'v').c_str()); // one byte too many with its end
    httpcAddHeader(client, "Null", nullptr);
    httpcAddHeader(client, "X", "1");
    httpcAddHeader(client, "X", "2");
    const string bytes = "GET " + string(127, 'p') + common + "X: 1\r\n\r\n";
    EXPECT_EQ(httpcSendRequest(client), static_cast<int>(bytes.size()) + 13);
    EXPECT_EQ(read_at_once(peer), bytes);
    httpcPushVar(client, "n", string(254, 'v').c_str()); // with its terminator 257 bytes
    EXPECT_EQ(httpcSendRequest(client), -1);
    EXPECT_EQ(client->socket, -1);
}

TEST_F(Httpc, FailsASendToAClosedPeerAndCountsAFullOne)
{
    expire = true;
    EXPECT_GT(httpcSendRequest(client), 0); // never writable: each write is 0, which is no failure
    EXPECT_EQ(waited_seconds, 2);
    expire = false;
    EXPECT_EQ(read_at_once(peer), "");
    shutdown(peer, SHUT_RDWR);
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
        {"HTTP/1.0 200 OK\nCookie:;=;x\nCookie:\nContent-Length: -7\n", 200, -7, "x", "none"},
        {"HTTP/1.0 200 " + string(200, 'r') + "\n", 200, 0, "reason", string(127, 'r')},
        {"HTTP/1.0 200 O\r\r\rK\nContent-Type: " + string(80, 't') + "\n", 200, 0, "",
         string(63, 't')},
        {"HTTP/1.0 200 OK\n" + nul + "\nContent-Length: 5\n", 200, 0, "x", "none"},
        {"HTTP/1.0 200 OK\nX: " + string(509, 'v') + "\nContent-Length: 5\n", 200, 0, "x", "none"},
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
}

TEST_F(Httpc, NeedsFullRefillsForTheHeadAndBoundsIt)
{
    const string ok = "HTTP/1.0 200 OK\n", wide = ok + "X: " + string(1021, 'v') + "\r\n";
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
        CaptureStderr();
        EXPECT_EQ(status_of(row.response), row.status) << row.response.size();
        const string trace = GetCapturedStderr();
        if (row.status == 200) {
            EXPECT_NE(trace.find(": H-72\n"), string::npos);
            EXPECT_EQ(httpcGetResponse(client, 1), 0); // parsed already
        }
        // What a head that failed has left lies within the buffer.
        EXPECT_LE(client->response.read_position + client->response.available, 1025);
    }
}

TEST_F(Httpc, HandsOutTheBodyByCopy)
{
    ASSERT_EQ(status_of(padded("HTTP/1.0 200 OK\r\n\r\nABCD", 1040), 0), 200);
    char body[2000];
    EXPECT_EQ(httpcReadResponse(client, body, 0), 0);
    EXPECT_EQ(httpcReadResponse(client, body, 3), 3);
    EXPECT_EQ(memcmp(body, "ABC", 3), 0);
    EXPECT_EQ(httpcReadResponse(client, body, 2000), 1025 - 19 - 3); // the client's own bytes
    EXPECT_EQ(httpcReadResponse(client, body, 2000), 15);            // the connection's
    EXPECT_EQ(waited_seconds, 300);
    EXPECT_EQ(httpcReadResponse(client, body, 2000), 0);
    EXPECT_EQ(client->socket, -1);
    EXPECT_EQ(httpcReadResponse(client, body, -1), 0);
    attach();
    client->response.available = 5;
    EXPECT_EQ(httpcReadResponse(client, body, -1), -1);
    EXPECT_EQ(client->socket, -1);
    attach();
    expire = true; // 300 seconds of silence
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

TEST_F(Httpc, ConnectsWithinATimeout)
{
    const struct {
        int timeout;
        fake_connect connecting;
        bool connected;
        const char *said;
    } rows[] = {
        {0, {0, 0, 0, 0}, true, ""},
        {0, refused, false, ""},
        {5, {-1, EINPROGRESS, 1, POLLOUT}, true, "timed_connect(): 1\n"},
        {5, {-1, EINPROGRESS, 1, POLLOUT | POLLIN}, false, "timed_connect(): -1\n"},
        {5, {-1, EINPROGRESS, 1, POLLOUT | POLLERR}, false, "timed_connect(): -1\n"},
        {5, {-1, EINPROGRESS, 0, 0}, false, "timed_connect(): 0\n"},
        {5, {-1, EINPROGRESS, -1, 0}, false, ""},
        {INT32_MAX, {0, 0, 0, 0}, false, "timed_connect(): 0\n"}, // at once: no success
    };
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    for (const auto &row : rows) {
        connecting = row.connecting;
        CaptureStderr();
        const int socket =
            _tcp_connect2(-1, reinterpret_cast<sockaddr *>(&address), sizeof(address), row.timeout);
        connecting = refused;
        const string said = GetCapturedStderr();
        EXPECT_EQ(socket >= 0, row.connected) << said;
        EXPECT_EQ(said.find(row.said), 0U) << said;
        EXPECT_EQ(count_of(said, "_tcp_connect2:line"), row.connected ? 0U : 2U);
        if (socket >= 0)
            close(socket);
    }
    // A failed connect rests a second and an unknown host does not; the request host goes first.
    slept_seconds = 0;
    EXPECT_EQ(_http_net_connect("127.0.0.1", 1, "127.0.0.2", 1, 0), -1);
    EXPECT_EQ(slept_seconds, 1);
    EXPECT_EQ(_http_net_connect("127.0.0.1", 1, "no such host", 1, 0), -1);
    EXPECT_EQ(slept_seconds, 1);
}

TEST_F(Httpc, FollowsRedirectsAndReturnsThroughEach)
{
    const string own = "Location: http://127.0.0.1:1/b\r\n";
    const string other = "Location: http://127.0.0.2:99\r\n";
    servers = {{padded("HTTP/1.0 304 X\r\n" + own)},
               {padded("HTTP/1.0 301 X\r\n" + other)},
               {padded("HTTP/1.0 200 OK\r\nLast: 1\r\n")}};
    close(client->socket);
    client->socket = -1;
    strcpy(client->host, "127.0.0.1");
    httpcInitRequest(client, 1, "/a");
    ASSERT_GT(httpcSendRequest(client), 0);
    CaptureStderr();
    EXPECT_EQ(httpcGetResponse(client, 1), 200);
    // Two lines for each of the three responses: those that redirect say theirs on the way back.
    EXPECT_EQ(count_of(GetCapturedStderr(), "client->ssl = (nil)"), 6U);
    EXPECT_STREQ(httpcGetHeader(client, "Last"), "1");
    const string lines = " HTTP/1.0\r\nAccept-Language: zh-cn\r\nContent-Length: 0\r\n"
                         "Host: 127.0.0.1\r\n";
    string asked;
    for (const server &each : servers) {
        asked += each.address + " " + read_at_once(each.socket);
        close(each.socket);
    }
    EXPECT_EQ(asked, "127.0.0.1:8080 GET /a" + lines + "\r\n127.0.0.1:8080 GET /b" + lines + own +
                         "\r\n127.0.0.2:99 GET " + lines + other + "\r\n");
}

TEST_F(Httpc, KeepsOrFailsTheRedirectsItCannotFollow)
{
    const string away = "Location: http://127.0.0.2:1/\r\n"; // refused
    const struct {
        string status, header;
        int keep, result;
    } rows[] = {
        {"300", away, 1, 300}, {"303", away, 1, 303},
        {"302", away, 0, 302}, {"302", "location: /\r\n", 1, 302},
        {"301", away, 1, -1},  {"302", "Location: http://h/" + string(120, 'p') + "\r\n", 1, -1},
    };
    for (const auto &row : rows)
        EXPECT_EQ(status_of(padded("HTTP/1.0 " + row.status + " X\r\n" + row.header), row.keep),
                  row.result)
            << row.status << row.header;
}

namespace {

std::vector<string> tls_calls;

// A TLS object that connects nowhere and notes what is asked of it.
const cyassl_client_ops fake_ops = {
    .connect =
        [](cyassl_client *, const char *host, uint16_t port) {
            tls_calls.push_back("connect " + string(host) + " " + std::to_string(port));
            return -1;
        },
    .release = [](cyassl_client *) { tls_calls.emplace_back("release"); },
    .read =
        [](cyassl_client *self, void *buffer, int length) {
            return static_cast<int>(read(self->socket, buffer, static_cast<size_t>(length)));
        },
    .write =
        [](cyassl_client *, const void *, int length) {
            tls_calls.push_back("write " + std::to_string(length));
            return length;
        },
};

} // namespace

TEST_F(Httpc, GoesThroughTheTlsObjectAndLeavesItOnARedirect)
{
    cyassl_client tls = {&fake_ops, client->socket, nullptr, nullptr, false};
    client->tls = &tls;
    tls_calls.clear();
    ASSERT_GT(httpcSendRequest(client), 0);
    EXPECT_EQ(tls_calls, (std::vector<string>{"write 17", "write 24", "write 19", "write 20",
                                              "write 2", "write 0"}));
    send_last(peer, padded("HTTP/1.0 302 X\r\nLocation: http://127.0.0.2:1/\r\n"));
    CaptureStderr();
    EXPECT_EQ(httpcGetResponse(client, 1), -1);
    EXPECT_NE(GetCapturedStderr().find("len: 1025, rlen=1024\n"), string::npos);
    EXPECT_EQ(tls_calls.back(), "release");
    EXPECT_EQ(client->tls, nullptr);
    client->tls = &tls;
    EXPECT_EQ(httpcSendRequest(client), -1);
    EXPECT_EQ(tls_calls.back(), "connect host.example 8080"); // not the request's host and port
}

TEST(HttpcClient, RefusesWhatItCannotHoldAndSaysFarewell)
{
    EXPECT_EQ(httpcOpenClient(nullptr, 80, 0), nullptr);
    EXPECT_EQ(httpcOpenClient("h", 0, 0), nullptr);
    EXPECT_EQ(httpcOpenClient(string(128, 'h').c_str(), 80, 0), nullptr);
    httpc_client *client = httpcOpenClient(string(127, 'h').c_str(), 80, 0);
    ASSERT_NE(client, nullptr);
    int peer = -1;
    client->socket = pair_with(&peer);
    cyassl_client tls = {&fake_ops, -1, nullptr, nullptr, false};
    client->tls = &tls;
    tls_calls.clear();
    EXPECT_EQ(httpcCloseClient(client), 0);
    EXPECT_EQ(tls_calls, (std::vector<string>{"release"})); // the farewell is not encrypted
    EXPECT_EQ(read_at_once(peer), "0");
    close(peer);
}
