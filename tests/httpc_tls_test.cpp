// SPDX-License-Identifier: GPL-2.0-or-later
//
// The TLS client object, with handshakes and records that are bytes in clear: what it does with its
// socket and with its connections of the library. Real ones are in the system tests.
#include "httpc/sslcli.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>

#include <wolfssl/options.h>
// The order counts: the options say how the library was built.
#include <wolfssl/ssl.h>

#include "tests/played_network.h"

using std::string;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

constexpr uint16_t tls_port = 443;
bool makes_no_more; ///< connections of the library
int handshakes;
int farewell; ///< what a shutdown's write came to
CallbackIORecv receive;
CallbackIOSend transmit;

timeval silence_limit(int socket, int option)
{
    return socket_option<timeval>(socket, SOL_SOCKET, option);
}

} // namespace

#pragma GCC diagnostic ignored "-Wmissing-declarations" // the wraps, by the linker's names

extern "C" {
int __wrap_wolfSSL_CTX_load_verify_locations(WOLFSSL_CTX *, const char *, const char *)
{
    return WOLFSSL_SUCCESS;
}
void __wrap_wolfSSL_CTX_SetIORecv(WOLFSSL_CTX *, CallbackIORecv callback)
{
    receive = callback;
}
void __wrap_wolfSSL_CTX_SetIOSend(WOLFSSL_CTX *, CallbackIOSend callback)
{
    transmit = callback;
}
WOLFSSL *__real_wolfSSL_new(WOLFSSL_CTX *);
WOLFSSL *__wrap_wolfSSL_new(WOLFSSL_CTX *context)
{
    return makes_no_more ? nullptr : __real_wolfSSL_new(context);
}
int __wrap_wolfSSL_read(WOLFSSL *connection, void *buffer, int size)
{
    return receive(connection, static_cast<char *>(buffer), size, wolfSSL_GetIOReadCtx(connection));
}
int __wrap_wolfSSL_write(WOLFSSL *connection, const void *buffer, int size)
{
    return transmit(connection, static_cast<char *>(const_cast<void *>(buffer)), size,
                    wolfSSL_GetIOWriteCtx(connection));
}
// A handshake is one byte of the server.
int __wrap_wolfSSL_connect(WOLFSSL *connection)
{
    handshakes++;
    const int socket = static_cast<cyassl_client *>(wolfSSL_GetIOReadCtx(connection))->socket;
    EXPECT_EQ(silence_limit(socket, SO_RCVTIMEO).tv_sec, 300);
    EXPECT_EQ(silence_limit(socket, SO_SNDTIMEO).tv_sec, 300);
    EXPECT_EQ(socket_option<int>(socket, IPPROTO_TCP, TCP_NODELAY), 1);
    char hello = 0;
    const bool made = __wrap_wolfSSL_read(connection, &hello, 1) == 1;
    return made ? WOLFSSL_SUCCESS : WOLFSSL_FATAL_ERROR;
}
int __wrap_wolfSSL_shutdown(WOLFSSL *connection)
{
    farewell = __wrap_wolfSSL_write(connection, "farewell", 8);
    return WOLFSSL_SUCCESS;
}
}

namespace {

struct Tls : testing::Test {
    cyassl_client *client = create_cyassl_client();
    bool released = false;

    void SetUp() override
    {
        played = {.at_connect = [](int socket) { // which the limit is not to shorten
            EXPECT_EQ(silence_limit(socket, SO_SNDTIMEO).tv_sec, 0);
        }};
        handshakes = 0;
    }
    void TearDown() override
    {
        if (!released)
            client->ops->release(client);
        free(client);
    }
    /// Connects to a server with this script.
    int connect(const string &script)
    {
        played.peers.push_back({.port = tls_port, .script = script});
        return client->ops->connect(client, "127.0.0.1", tls_port);
    }
    int read_byte()
    {
        char got = 0;
        return client->ops->read(client, &got, 1);
    }
    /// Writes, and says what the server has received since the connect.
    string write_text()
    {
        const int result = client->ops->write(client, "text", 4);
        const string &received = played.peers.back().received;
        EXPECT_EQ(result < 0, received.empty());
        return received;
    }
};

} // namespace

TEST_F(Tls, MakesAHandshakeOfItsOwnForEachConnect)
{
    EXPECT_GE(connect(PEER_FAILS "x"), 0);
    EXPECT_EQ(write_text(), "");
    EXPECT_LT(read_byte(), 0);
    EXPECT_GE(connect("h"), 0);
    EXPECT_EQ(write_text(), "text");
    EXPECT_EQ(client->ops->connect(client, "no such host", 1), -1);
    EXPECT_LT(client->ops->write(client, "late", 4), 0);
    makes_no_more = true; // after one that worked, too
    EXPECT_GE(connect("h"), 0);
    EXPECT_EQ(write_text(), "");
    makes_no_more = false;
    EXPECT_GE(connect("h"), 0);
    EXPECT_EQ(write_text(), "text");
    EXPECT_EQ(handshakes, 3); // what is not freed in between, the leak sanitizer finds
}

TEST_F(Tls, TriesNothingMoreOnceAWaitHasPassed)
{
    EXPECT_GE(connect(PEER_SILENCE "h"), 0);
    EXPECT_EQ(connect("h"), -1);
    EXPECT_EQ(write_text(), "");
    EXPECT_EQ(handshakes, 1);
    client->timed_out = false;
    played.peers.clear();
    EXPECT_GE(connect("h" PEER_SILENCE "x"), 0);
    EXPECT_LT(read_byte(), 0);
    EXPECT_LT(read_byte(), 0);
    EXPECT_EQ(write_text(), "");
}

TEST_F(Tls, AnswersForItsSocket)
{
    ASSERT_GE(connect("hx" PEER_INTERRUPTS), 0);
    EXPECT_EQ(read_byte(), 1);
    EXPECT_EQ(read_byte(), WOLFSSL_CBIO_ERR_ISR);
    EXPECT_EQ(read_byte(), WOLFSSL_CBIO_ERR_CONN_CLOSE);
    client->socket = -1; // closed by its owner
    EXPECT_LT(read_byte(), 0);
    CaptureStderr();
    released = true;
    client->ops->release(client);
    EXPECT_EQ(GetCapturedStderr(), "sslcli.c:cyassl_client_release:152: CHECKPOINT\n");
    EXPECT_EQ(farewell, WOLFSSL_CBIO_ERR_GENERAL);
    EXPECT_EQ(played.peers[0].received, "");
}

// The rest of its messages is compared on whole runs.
TEST_F(Tls, SaysWhereItCouldNotConnect)
{
    const string at = "sslcli.c:cyassl_client_connect:";
    CaptureStderr();
    EXPECT_EQ(client->ops->connect(client, nullptr, 1), -1);
    EXPECT_EQ(client->ops->connect(client, "127.0.0.1", 1), -1);
    EXPECT_EQ(GetCapturedStderr(), at + "98: CHECKPOINT\n" + at + "98: CHECKPOINT\n" +
                                       "Connect to 127.0.0.1:1......" + at +
                                       "113: Connection refused\n");
    CaptureStderr();
    EXPECT_EQ(client->ops->connect(client, "no such host", 1), -1);
    EXPECT_EQ(GetCapturedStderr().find(at + "98: CHECKPOINT\n" + at + "102: "), 0U);
}
