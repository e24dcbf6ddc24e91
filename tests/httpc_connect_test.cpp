// SPDX-License-Identifier: GPL-2.0-or-later
//
// How the HTTP client connects, follows redirects and leaves.
#include "httpc/http-priv.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <vector>

#include "httpc/sslcli.h"
#include "tests/httpc_fixture.h"

using std::string;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

struct fake_poll {
    int result;
    short events;
    int interruptions = 0; ///< that come before the result
    int milliseconds = 0;  ///< how long was waited
};
fake_poll polling;

} // namespace

#pragma GCC diagnostic ignored "-Wmissing-declarations" // the wrap, by the linker's name

extern "C" int __wrap_poll(pollfd *entry, nfds_t, int milliseconds)
{
    EXPECT_EQ(entry->events, POLLIN | POLLOUT);
    polling.milliseconds = milliseconds;
    errno = polling.interruptions > 0 ? EINTR : EIO;
    entry->revents = polling.events;
    return polling.interruptions-- > 0 ? -1 : polling.result;
}

namespace {

size_t count_of(const string &text, const string &word)
{
    size_t count = 0;
    for (size_t at = text.find(word); at != string::npos; at = text.find(word, at + 1))
        count++;
    return count;
}

} // namespace

TEST_F(Httpc, ConnectsWithinATimeout)
{
    const struct {
        int flags; ///< of the caller's socket; -1 for none
        int timeout, error;
        fake_poll polled; ///< with the milliseconds that are expected
        bool connected;
        const char *said;
        bool blocks = true; ///< the socket behind it
    } rows[] = {
        {-1, 0, 0, {0, 0}, true, ""},
        {-1, 0, ECONNREFUSED, {0, 0}, false, ""},
        {-1, 5, EINPROGRESS, {1, POLLOUT, 2, 5000}, true, "timed_connect(): 1\n"},
        {-1, 5, EINPROGRESS, {1, POLLOUT | POLLIN, 0, 5000}, false, "timed_connect(): -1\n"},
        {-1, 5, EINPROGRESS, {1, POLLOUT | POLLERR, 0, 5000}, false, "timed_connect(): -1\n"},
        {-1, INT32_MAX, EINPROGRESS, {-1, 0, 0, INT32_MAX}, false, ""},
        {-1, 5, 0, {0, 0}, false, "timed_connect(): 0\n"}, // at once: no success
        {0, 5, EINPROGRESS, {0, 0, 0, 5000}, false, "timed_connect(): 0\n"},
        {O_NONBLOCK, 5, EINPROGRESS, {0, 0, 0, 5000}, false, "timed_connect(): 0\n", false},
        {0, 5, EINPROGRESS, {-1, 0, 0, 5000}, false, "", false}, // where the poll failed
    };
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    for (const auto &row : rows) {
        const played_peer &peer =
            played.peers.emplace_back(played_peer{.port = 0, .script = "", .error = row.error});
        played.at_connect = [&](int socket) {
            EXPECT_EQ((fcntl(socket, F_GETFL) & O_NONBLOCK) == 0, row.timeout == 0);
            const auto wait = socket_option<linger>(socket, SOL_SOCKET, SO_LINGER);
            EXPECT_EQ(wait.l_onoff, 1);
            EXPECT_EQ(wait.l_linger, 5);
        };
        polling = row.polled;
        polling.milliseconds = 0;
        const bool made = row.flags < 0;
        const int own = made ? 0 : socket(AF_INET, SOCK_STREAM | row.flags, 0); // 0 is no socket
        CaptureStderr();
        const int socket = _tcp_connect2(own, reinterpret_cast<sockaddr *>(&address),
                                         sizeof(address), row.timeout);
        const string said = GetCapturedStderr();
        EXPECT_EQ(socket > 0, row.connected) << said;
        EXPECT_EQ(said.find(row.said), 0U) << said;
        EXPECT_EQ(count_of(said, "http-priv.c:_tcp_connect2:line"),
                  row.connected ? 0U : 1U + (made ? 1U : 0U));
        EXPECT_EQ(polling.milliseconds, row.polled.milliseconds);
        EXPECT_EQ(peer.socket >= 0, row.connected || !made); // its caller's stays open
        if (peer.socket < 0)
            continue;
        EXPECT_EQ((fcntl(peer.socket, F_GETFL) & O_NONBLOCK) == 0, row.blocks);
        close(peer.socket);
    }
}

TEST_F(Httpc, RestsBehindAFailedConnectAndNotBehindAnUnknownHost)
{
    EXPECT_EQ(_http_net_connect("127.0.0.1", 1, "127.0.0.2", 1, 0), -1);
    EXPECT_EQ(played.slept_seconds, 1U);
    EXPECT_EQ(_http_net_connect("127.0.0.1", 1, "no such host", 1, 0), -1); // which goes first
    EXPECT_EQ(played.slept_seconds, 1U);
}

TEST_F(Httpc, FollowsRedirectsAndReturnsThroughEach)
{
    const string own = "Location: http://127.0.0.1:1/b\r\n";
    const string other = "Location: http://127.0.0.2:99\r\n";
    close(client->socket);
    client->socket = -1;
    played.peers = {{.port = 8080, .script = padded("HTTP/1.0 304 X\r\n" + own)},
                    {.port = 8080, .script = padded("HTTP/1.0 301 X\r\n" + other)},
                    {.port = 99, .script = padded("HTTP/1.0 200 OK\r\nLast: 1\r\n")}};
    strcpy(client->host, "127.0.0.3"); // where a redirect to 127.0.0.1 leads
    httpcInitRequest(client, 1, "/a");
    ASSERT_GT(httpcSendRequest(client), 0);
    CaptureStderr();
    EXPECT_EQ(httpcGetResponse(client, 1), 200);
    // Two lines for each of the three responses: those that redirect say theirs on the way back.
    EXPECT_EQ(count_of(GetCapturedStderr(), "client->ssl = (nil)"), 6U);
    EXPECT_STREQ(httpcGetHeader(client, "Last"), "1");
    EXPECT_EQ(httpcGetHeader(client, "Location"), nullptr); // another response's
    const string lines = " HTTP/1.0\r\nAccept-Language: zh-cn\r\nContent-Length: 0\r\n"
                         "Host: 127.0.0.3\r\n";
    string asked;
    for (const played_peer &peer : played.peers)
        asked += peer.address + " " + peer.received;
    EXPECT_EQ(asked, "127.0.0.3:8080 GET /a" + lines + "\r\n127.0.0.3:8080 GET /b" + lines + own +
                         "\r\n127.0.0.2:99 GET " + lines + other + "\r\n");
    EXPECT_EQ(played.peers[0].socket, -1);
    EXPECT_EQ(played.peers[1].socket, -1);
}

TEST_F(Httpc, KeepsOrFailsTheRedirectsItCannotFollow)
{
    const string away = "Location: http://127.0.0.2:1/\r\n"; // refused
    const struct {
        string status, header;
        int keep, result;
    } rows[] = {
        {"300", away, 1, 300},
        {"303", away, 1, 303},
        {"302", away, 0, 302},
        {"302", "location: /\r\n", 1, 302},
        {"302", "Location: \r\n", 1, -1},
        {"301", away, 1, -1},
        {"302", "Location: http://h/" + string(120, 'p') + "\r\n", 1, -1},
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
            const ssize_t count = read(self->socket, buffer, static_cast<size_t>(length));
            return count < 0 ? -17 : static_cast<int>(count);
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
    cyassl_client tls = {};
    tls.ops = &fake_ops;
    attach("x");
    client->tls = &tls;
    tls.socket = -1;
    char byte = 0;
    EXPECT_EQ(httpcReadResponse(client, &byte, 1), -1); // whatever the object says below 0
    attach(padded("HTTP/1.0 302 X\r\nLocation: http://127.0.0.2:1/\r\n"));
    tls.socket = client->socket;
    tls_calls.clear();
    CaptureStderr();
    ASSERT_GT(httpcSendRequest(client), 0);
    EXPECT_EQ(tls_calls, (std::vector<string>{"write 17", "write 24", "write 19", "write 20",
                                              "write 2", "write 0"}));
    EXPECT_EQ(httpcGetResponse(client, 1), -1);
    const string said = GetCapturedStderr();
    EXPECT_NE(said.find("write buf: GET /a HTTP/1.0\r\n len: 17\n"), string::npos);
    EXPECT_NE(said.find("len: 1025, rlen=1024\n"), string::npos);
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
    cyassl_client tls = {};
    tls.ops = &fake_ops;
    // Behind the body's end the socket's number may be somebody else's: nothing more is sent there.
    for (const bool ended : {false, true}) {
        httpc_client *client = httpcOpenClient(string(127, 'h').c_str(), 80, 0);
        ASSERT_NE(client, nullptr);
        tls.socket = client->socket = play_connected("");
        client->tls = &tls;
        char byte = 0;
        if (ended) {
            EXPECT_EQ(httpcReadResponse(client, &byte, 1), 0);
            EXPECT_EQ(client->socket, -1);
        }
        tls_calls.clear();
        EXPECT_EQ(httpcCloseClient(client), 0);
        EXPECT_EQ(tls_calls, (std::vector<string>{"release"})); // the farewell is not encrypted
        EXPECT_EQ(played.peers.back().received, ended ? "" : "0");
        EXPECT_EQ(tls.socket, -1); // closed: what a release sends reaches nobody
    }
}
