// SPDX-License-Identifier: GPL-2.0-or-later
//
// The TLS client object, with handshakes and records played by the test: which of the library's
// calls are made, on what socket, and what comes of their results. Real ones are in the system
// tests.
#include "httpc/sslcli.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include <wolfssl/options.h>
// The order counts: the options say how the library was built.
#include <wolfssl/ssl.h>

using std::string;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

std::vector<string> calls; ///< of the library, in order
bool makes_no_more = false;
bool handshake_works = true;
bool handshake_waits = false; ///< its read runs into the time-out
bool authority_is_there = true;
int interrupted = 0; ///< reads that a signal ends
int shut_down = 1;   ///< what a shutdown's write came to
CallbackIORecv receive = nullptr;
CallbackIOSend transmit = nullptr;
void *allocated = nullptr; ///< an object that could not be finished stays, as the header says

} // namespace

#pragma GCC diagnostic ignored "-Wmissing-declarations" // the wraps, by the linker's names

extern "C" {
void *__real_calloc(size_t, size_t);
void *__wrap_calloc(size_t count, size_t size)
{
    return allocated = __real_calloc(count, size);
}
int __wrap_wolfSSL_CTX_load_verify_locations(WOLFSSL_CTX *, const char *file, const char *folder)
{
    EXPECT_STREQ(file, "/usr/etc/ca-cert.pem");
    EXPECT_EQ(folder, nullptr);
    return authority_is_there ? WOLFSSL_SUCCESS : WOLFSSL_FAILURE;
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
void __wrap_wolfSSL_set_verify(WOLFSSL *, int mode, VerifyCallback callback)
{
    EXPECT_EQ(mode, WOLFSSL_VERIFY_PEER);
    EXPECT_EQ(callback, nullptr);
    calls.emplace_back("verify");
}
int __wrap_wolfSSL_connect(WOLFSSL *connection)
{
    calls.emplace_back("connect");
    void *context = wolfSSL_GetIOReadCtx(connection);
    const auto *self = static_cast<const cyassl_client *>(context);
    EXPECT_EQ(wolfSSL_GetIOWriteCtx(connection), self);
    for (const int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
        timeval wait = {};
        socklen_t size = sizeof(wait);
        EXPECT_EQ(getsockopt(self->socket, SOL_SOCKET, option, &wait, &size), 0);
        EXPECT_EQ(wait.tv_sec, 300);
    }
    int at_once = 0;
    socklen_t size = sizeof(at_once);
    EXPECT_EQ(getsockopt(self->socket, IPPROTO_TCP, TCP_NODELAY, &at_once, &size), 0);
    EXPECT_EQ(at_once, 1);
    if (handshake_waits) {
        const timeval soon = {.tv_sec = 0, .tv_usec = 1};
        setsockopt(self->socket, SOL_SOCKET, SO_RCVTIMEO, &soon, sizeof(soon));
        char got = 0;
        EXPECT_EQ(receive(connection, &got, 1, context), WOLFSSL_CBIO_ERR_GENERAL);
        return WOLFSSL_FATAL_ERROR;
    }
    return handshake_works ? WOLFSSL_SUCCESS : WOLFSSL_FATAL_ERROR;
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
int __wrap_wolfSSL_shutdown(WOLFSSL *connection)
{
    char bytes[] = "farewell";
    shut_down = transmit(connection, bytes, 8, wolfSSL_GetIOWriteCtx(connection));
    return WOLFSSL_SUCCESS;
}
ssize_t __real_recv(int, void *, size_t, int);
ssize_t __wrap_recv(int socket, void *buffer, size_t size, int flags)
{
    if (interrupted-- > 0) {
        errno = EINTR;
        return -1;
    }
    return __real_recv(socket, buffer, size, flags);
}
}

namespace {

struct Tls : testing::Test {
    int listener = -1;
    uint16_t port = 0;
    cyassl_client *client = nullptr;
    std::vector<int> sockets;
    bool released = false;

    void SetUp() override
    {
        signal(SIGPIPE, SIG_IGN);
        calls.clear();
        interrupted = 0;
        handshake_works = authority_is_there = true;
        handshake_waits = makes_no_more = false;
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        auto *generic = reinterpret_cast<sockaddr *>(&address);
        listener = socket(AF_INET, SOCK_STREAM, 0);
        bind(listener, generic, size);
        listen(listener, 8);
        getsockname(listener, generic, &size);
        port = ntohs(address.sin_port);
        client = create_cyassl_client();
        ASSERT_NE(client, nullptr);
    }
    void TearDown() override
    {
        for (const int each : sockets)
            close(each);
        close(listener);
        if (!released)
            client->ops->release(client);
        free(client);
    }
    int connect()
    {
        sockets.push_back(client->ops->connect(client, "127.0.0.1", port));
        return sockets.back();
    }
    int accepted()
    {
        sockets.push_back(accept(listener, nullptr, nullptr));
        return sockets.back();
    }
    int read_byte()
    {
        char got = 0;
        return client->ops->read(client, &got, 1);
    }
};

} // namespace

TEST_F(Tls, MakesAHandshakeOfItsOwnForEachConnect)
{
    handshake_works = false;
    EXPECT_GE(connect(), 0);
    EXPECT_LT(client->ops->write(client, "secret", 6), 0);
    EXPECT_LT(read_byte(), 0);
    char got = 0;
    EXPECT_EQ(recv(accepted(), &got, 1, MSG_DONTWAIT), -1); // nothing went out
    handshake_works = true;
    EXPECT_GE(connect(), 0);
    EXPECT_EQ(client->ops->write(client, "hello", 5), 5);
    char text[6] = {};
    EXPECT_EQ(recv(accepted(), text, 5, 0), 5);
    EXPECT_STREQ(text, "hello");
    makes_no_more = true; // after one that worked, too
    EXPECT_GE(connect(), 0);
    EXPECT_LT(client->ops->write(client, "secret", 6), 0);
    makes_no_more = false;
    EXPECT_GE(connect(), 0);
    EXPECT_EQ(client->ops->write(client, "hello", 5), 5);
    // What is not freed in between, the leak sanitizer finds.
    EXPECT_EQ(calls,
              (std::vector<string>{"verify", "connect", "verify", "connect", "verify", "connect"}));
}

TEST_F(Tls, TriesNothingMoreOnceAWaitHasPassed)
{
    handshake_waits = true;
    EXPECT_GE(connect(), 0);
    handshake_waits = false;
    EXPECT_EQ(connect(), -1);
    EXPECT_LT(client->ops->write(client, "secret", 6), 0);
    EXPECT_EQ(calls, (std::vector<string>{"verify", "connect"}));
    client->timed_out = false;
    EXPECT_GE(connect(), 0);
    EXPECT_EQ(client->ops->write(client, "hello", 5), 5);
    const timeval soon = {.tv_sec = 0, .tv_usec = 1};
    setsockopt(client->socket, SOL_SOCKET, SO_RCVTIMEO, &soon, sizeof(soon));
    EXPECT_LT(read_byte(), 0);
    EXPECT_LT(client->ops->write(client, "secret", 6), 0);
}

TEST_F(Tls, AnswersForItsSocket)
{
    ASSERT_GE(connect(), 0);
    const int peer = accepted();
    send(peer, "x", 1, 0);
    EXPECT_EQ(read_byte(), 1);
    interrupted = 1;
    EXPECT_EQ(read_byte(), WOLFSSL_CBIO_ERR_ISR);
    shutdown(peer, SHUT_WR);
    EXPECT_EQ(read_byte(), WOLFSSL_CBIO_ERR_CONN_CLOSE);
    client->socket = -1; // closed by its owner
    EXPECT_LT(read_byte(), 0);
    CaptureStderr();
    released = true;
    client->ops->release(client);
    EXPECT_EQ(GetCapturedStderr(), "sslcli.c:cyassl_client_release:152: CHECKPOINT\n");
    EXPECT_EQ(shut_down, WOLFSSL_CBIO_ERR_GENERAL);
    char got = 0;
    EXPECT_EQ(recv(peer, &got, 1, MSG_DONTWAIT), -1);
}

TEST_F(Tls, SaysWhatItDoes)
{
    authority_is_there = false;
    CaptureStderr();
    EXPECT_EQ(create_cyassl_client(), nullptr);
    handshake_works = false;
    const int socket = connect();
    read_byte();
    EXPECT_EQ(client->ops->connect(client, "no such host", 1), -1);
    EXPECT_EQ(client->ops->connect(client, nullptr, 1), -1);
    close(listener);
    EXPECT_EQ(client->ops->connect(client, "127.0.0.1", port), -1);
    const string at = "sslcli.c:cyassl_client_connect:";
    const string to = "Connect to 127.0.0.1:" + std::to_string(port) + "......";
    const string said = GetCapturedStderr();
    const string begin = "sslcli.c:create_cyassl_client:66: CHECKPOINT\n"
                         "sslcli.c:create_cyassl_client:78: FUNCTION FAILED!\n" +
                         at + "98: CHECKPOINT\n" + to +
                         "connected\nsock = " + std::to_string(socket) + "\n" + at +
                         "120: FUNCTION FAILED!\nsslcli.c:cyassl_client_read:160: CHECKPOINT\n" +
                         at + "98: CHECKPOINT\n" + at + "102: ";
    EXPECT_EQ(said.substr(0, begin.size()), begin);
    const string end =
        at + "98: CHECKPOINT\n" + at + "98: CHECKPOINT\n" + to + at + "113: Connection refused\n";
    EXPECT_EQ(said.substr(said.size() - end.size()), end);
}
