// SPDX-License-Identifier: GPL-2.0-or-later
//
// How the HTTP client connects, follows redirects and leaves.
#include "httpc/http-priv.h"

#include <arpa/inet.h>
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

int slept_seconds = 0;
struct fake_connect {
    int result, error, poll_result;
    short events;
    int interruptions = 0; ///< polls that a signal ends before
};
bool connects_blocking; ///< what the socket was at the last connect
int poll_milliseconds;
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

} // namespace

#pragma GCC diagnostic ignored "-Wmissing-declarations" // the wraps, by the linker's names

extern "C" {
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
    connects_blocking = (fcntl(socket, F_GETFL) & O_NONBLOCK) == 0;
    errno = connecting.error;
    return connecting.result;
}
int __wrap_poll(pollfd *entry, nfds_t, int milliseconds)
{
    EXPECT_EQ(entry->events, POLLIN | POLLOUT);
    poll_milliseconds = milliseconds;
    errno = EINTR;
    if (connecting.interruptions-- > 0)
        return -1;
    errno = EIO;
    entry->revents = connecting.events;
    return connecting.poll_result;
}
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
        int timeout, milliseconds;
        fake_connect connecting;
        bool connected;
        const char *said;
        bool blocks = true; ///< the socket behind it
    } rows[] = {
        {-1, 0, 0, {0, 0, 0, 0}, true, ""},
        {-1, 0, 0, refused, false, ""},
        {-1, 5, 5000, {-1, EINPROGRESS, 1, POLLOUT, 2}, true, "timed_connect(): 1\n"},
        {-1, 5, 5000, {-1, EINPROGRESS, 1, POLLOUT | POLLIN}, false, "timed_connect(): -1\n"},
        {-1, 5, 5000, {-1, EINPROGRESS, 1, POLLOUT | POLLERR}, false, "timed_connect(): -1\n"},
        {-1, INT32_MAX, INT32_MAX, {-1, EINPROGRESS, -1, 0}, false, ""},
        {-1, 5, 0, {0, 0, 0, 0}, false, "timed_connect(): 0\n"}, // at once: no success
        {0, 5, 5000, {-1, EINPROGRESS, 0, 0}, false, "timed_connect(): 0\n"},
        {O_NONBLOCK, 5, 5000, {-1, EINPROGRESS, 0, 0}, false, "timed_connect(): 0\n", false},
        {0, 5, 5000, {-1, EINPROGRESS, -1, 0}, false, "", false}, // where the poll failed
    };
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    const auto *generic = reinterpret_cast<sockaddr *>(&address);
    for (const auto &row : rows) {
        connecting = row.connecting;
        poll_milliseconds = 0;
        const bool made = row.flags < 0;
        const int own = made ? 0 : socket(AF_INET, SOCK_STREAM | row.flags, 0); // 0 is no socket
        CaptureStderr();
        const int socket = _tcp_connect2(own, generic, sizeof(address), row.timeout);
        const string said = GetCapturedStderr();
        EXPECT_EQ(socket > 0, row.connected) << said;
        EXPECT_EQ(said.find(row.said), 0U) << said;
        EXPECT_EQ(count_of(said, "http-priv.c:_tcp_connect2:line"),
                  row.connected ? 0U : 1U + (made ? 1U : 0U));
        EXPECT_EQ(poll_milliseconds, row.milliseconds);
        EXPECT_EQ(connects_blocking, row.timeout == 0);
        const int left = made ? socket : own; // its caller's stays open
        if (left < 0)
            continue;
        linger option = {};
        socklen_t size = sizeof(option);
        EXPECT_EQ(getsockopt(left, SOL_SOCKET, SO_LINGER, &option, &size), 0);
        EXPECT_EQ(option.l_onoff, 1);
        EXPECT_EQ(option.l_linger, 5);
        EXPECT_EQ((fcntl(left, F_GETFL) & O_NONBLOCK) == 0, row.blocks);
        EXPECT_EQ(close(left), 0);
    }
}

TEST_F(Httpc, RestsBehindAFailedConnectAndNotBehindAnUnknownHost)
{
    connecting = refused;
    slept_seconds = 0;
    EXPECT_EQ(_http_net_connect("127.0.0.1", 1, "127.0.0.2", 1, 0), -1);
    EXPECT_EQ(slept_seconds, 1);
    EXPECT_EQ(_http_net_connect("127.0.0.1", 1, "no such host", 1, 0), -1); // which goes first
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
    strcpy(client->host, "127.0.0.3"); // where a redirect to 127.0.0.1 leads
    httpcInitRequest(client, 1, "/a");
    ASSERT_GT(httpcSendRequest(client), 0);
    CaptureStderr();
    EXPECT_EQ(httpcGetResponse(client, 1), 200);
    // Two lines for each of the three responses: those that redirect say theirs on the way back.
    EXPECT_EQ(count_of(GetCapturedStderr(), "client->ssl = (nil)"), 6U);
    EXPECT_STREQ(httpcGetHeader(client, "Last"), "1");
    const string lines = " HTTP/1.0\r\nAccept-Language: zh-cn\r\nContent-Length: 0\r\n"
                         "Host: 127.0.0.3\r\n";
    string asked;
    for (const server &each : servers) {
        asked += each.address + " " + read_at_once(each.socket);
        close(each.socket);
    }
    EXPECT_EQ(asked, "127.0.0.3:8080 GET /a" + lines + "\r\n127.0.0.3:8080 GET /b" + lines + own +
                         "\r\n127.0.0.2:99 GET " + lines + other + "\r\n");
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
    tls.socket = client->socket;
    client->tls = &tls;
    tls.socket = -1;
    char byte = 0;
    send(peer, "x", 1, 0);
    EXPECT_EQ(httpcReadResponse(client, &byte, 1), -1); // whatever the object says below 0
    attach();
    tls.socket = client->socket;
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
    cyassl_client tls = {};
    tls.ops = &fake_ops;
    // Behind the body's end the socket's number may be somebody else's: nothing more is sent there.
    for (const bool ended : {false, true}) {
        httpc_client *client = httpcOpenClient(string(127, 'h').c_str(), 80, 0);
        ASSERT_NE(client, nullptr);
        int peer = -1;
        tls.socket = client->socket = pair_with(&peer);
        client->tls = &tls;
        char byte = 0;
        if (ended) {
            shutdown(peer, SHUT_WR);
            EXPECT_EQ(httpcReadResponse(client, &byte, 1), 0);
            EXPECT_EQ(client->socket, -1);
        }
        tls_calls.clear();
        EXPECT_EQ(httpcCloseClient(client), 0);
        EXPECT_EQ(tls_calls, (std::vector<string>{"release"})); // the farewell is not encrypted
        EXPECT_EQ(read_at_once(peer), ended ? "" : "0");
        EXPECT_EQ(tls.socket, -1); // closed: what a release sends reaches nobody
        close(peer);
    }
}
