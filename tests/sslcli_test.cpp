// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the TLS client asks of its socket and of the library. Handshakes are met on whole runs.
#include "httpc/sslcli.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

static int receives;

#pragma GCC diagnostic ignored "-Wmissing-declarations" // the wraps
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {
int __wrap_connect(int, const sockaddr *, socklen_t)
{
    static int left = 2;
    errno = ECONNREFUSED;
    return left-- > 0 ? 0 : -1;
}
int __wrap_wolfSSL_CTX_load_verify_locations(void *, const char *, const char *)
{
    return 1;
}
int __wrap_wolfSSL_write(void *, const void *, int size)
{
    return size;
}
ssize_t __wrap_send(int, const void *, size_t size, int)
{
    return static_cast<ssize_t>(size);
}
/// A signal and, by turns, the end, which leaves errno as a wait that ran out would.
ssize_t __wrap_recv(int, void *, size_t, int)
{
    errno = ++receives % 2 != 0 ? EINTR : EAGAIN;
    return errno == EINTR ? -1 : 0;
}
}
// NOLINTEND(bugprone-reserved-identifier)

TEST(Sslcli, WritesOnlyOnWhatIsSecuredAndLosesNothing)
{
    cyassl_client *tls = create_cyassl_client();
    ASSERT_NE(tls, nullptr);
    for (const int turn : {1, 2}) {
        const int socket = tls->ops->connect(tls, "127.0.0.1", 443);
        EXPECT_EQ(receives, 2 * turn); // once more after the signal, and that was the end
        EXPECT_FALSE(tls->timed_out);
        EXPECT_EQ(tls->ops->write(tls, "x", 1), -1);
        timeval wait = {};
        int at_once = 0;
        socklen_t wait_size = sizeof(wait), size = sizeof(at_once);
        getsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &wait, &wait_size);
        getsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &at_once, &size);
        EXPECT_EQ(wait.tv_sec, 300);
        EXPECT_EQ(at_once, 1);
    }
    tls->secured = true; // as after a handshake
    EXPECT_EQ(tls->ops->write(tls, "x", 1), 1);
    tls->timed_out = true;
    EXPECT_EQ(tls->ops->write(tls, "x", 1), -1);
    tls->timed_out = false;
    EXPECT_EQ(tls->ops->connect(tls, "127.0.0.1", 443), -1);
    EXPECT_EQ(tls->ops->write(tls, "x", 1), -1);
    tls->ops->release(tls);
    free(tls);
}
