// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/sslcli.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <arpa/inet.h>
#include <malloc.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <wolfssl/options.h>
// The order counts: the options say how the library was built.
#include <wolfssl/ssl.h>
#include <wolfssl/wolfcrypt/ecc.h>

#include "httpc/httpc_client.h"
#include "platform/device.h"
#include "platform/diagnostic.h"

namespace {

// What the messages of this unit begin with; see platform/diagnostic.h.
constexpr diagnostic_place in(const char *function, int number)
{
    return {.unit = diagnostic_sslcli, .number = number, .function = function};
}
constexpr diagnostic_place at_create = in("create_cyassl_client", 66);
constexpr diagnostic_place at_create_memory = in("create_cyassl_client", 68);
constexpr diagnostic_place at_create_context = in("create_cyassl_client", 74);
constexpr diagnostic_place at_create_authority = in("create_cyassl_client", 78);
constexpr diagnostic_place at_create_connection = in("create_cyassl_client", 84);
constexpr diagnostic_place at_connect = in("cyassl_client_connect", 98);
constexpr diagnostic_place at_connect_host = in("cyassl_client_connect", 102);
constexpr diagnostic_place at_connect_socket = in("cyassl_client_connect", 113);
constexpr diagnostic_place at_connect_handshake = in("cyassl_client_connect", 120);
constexpr diagnostic_place at_release = in("cyassl_client_release", 152);
constexpr diagnostic_place at_read = in("cyassl_client_read", 160);

constexpr char checkpoint[] = "CHECKPOINT\n";
constexpr char function_failed[] = "FUNCTION FAILED!\n";

WOLFSSL_METHOD *client_method()
{
#ifdef UPGRADE_HAVE_SSLV3
    return wolfSSLv3_client_method();
#else
    return wolfSSLv23_client_method(); // the closest there is: the best version both sides have
#endif
}

/// The library's answer to what the socket has said; 0 stands for its end.
int answer(cyassl_client *self, ssize_t result)
{
    if (result > 0)
        return static_cast<int>(result);
    if (result == 0)
        return WOLFSSL_CBIO_ERR_CONN_CLOSE;
    if (errno == EINTR)
        return WOLFSSL_CBIO_ERR_ISR;
    if (errno == EAGAIN)
        self->timed_out = true; // the socket blocks, so its time-out has passed
    return WOLFSSL_CBIO_ERR_GENERAL;
}

// In place of the library's own, which would wait eleven times over in a handshake.
int receive(WOLFSSL * /*connection*/, char *buffer, int size, void *self)
{
    auto *client = static_cast<cyassl_client *>(self);
    return answer(client, recv(client->socket, buffer, static_cast<size_t>(size), 0));
}

int transmit(WOLFSSL * /*connection*/, char *buffer, int size, void *self)
{
    auto *client = static_cast<cyassl_client *>(self);
    return answer(client, send(client->socket, buffer, static_cast<size_t>(size), 0));
}

/// A new connection of the library, in place of one that had its handshake: that one's state,
/// failed or not, is of no use to another server process. Whether there is one.
bool renew_connection(cyassl_client *self)
{
    wolfSSL_free(self->connection); // null is allowed
    self->connection = wolfSSL_new(self->context);
    self->used = self->connection == nullptr; // the next connect tries again
    if (self->used)
        return false;
    wolfSSL_SetIOReadCtx(self->connection, self);
    wolfSSL_SetIOWriteCtx(self->connection, self);
    // Said aloud, since some builds of the library verify nothing unless they are told to.
    wolfSSL_set_verify(self->connection, WOLFSSL_VERIFY_PEER, nullptr);
    return true;
}

bool handshake(cyassl_client *self)
{
    if (self->used && !renew_connection(self))
        return false;
    self->used = true;
    // Set only now, so that they do not shorten the connect.
    const timeval wait = {.tv_sec = httpc_response_wait_seconds, .tv_usec = 0};
    setsockopt(self->socket, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait));
    setsockopt(self->socket, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof(wait));
    // The request goes out in small writes; each would wait for the answer to the one before.
    const int at_once = 1;
    setsockopt(self->socket, IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof(at_once));
    wolfSSL_set_fd(self->connection, self->socket);
    // Once more, behind wolfSSL_set_fd, which names the socket there.
    wolfSSL_SetIOReadCtx(self->connection, self);
    wolfSSL_SetIOWriteCtx(self->connection, self);
    const bool made = wolfSSL_connect(self->connection) == WOLFSSL_SUCCESS;
    // The handshake's tables of curve points, 1.6 MB, go back before the package needs the room.
#ifdef FP_ECC
    wc_ecc_fp_free();
#endif
#ifdef UPGRADE_HAVE_MALLOC_TRIM
    malloc_trim(0);
#endif
    return made;
}

int cyassl_client_connect(cyassl_client *self, const char *host, uint16_t port)
{
    diagnose(at_connect, checkpoint);
    self->secured = false;
    if (host == nullptr)
        return -1;
    if (self->timed_out) { // nobody feeds the watchdog: no second wait for a peer that is gone
        diagnose(at_connect_handshake, function_failed);
        return -1;
    }
    const hostent *entry = gethostbyname(host);
    if (entry == nullptr) {
        diagnose(at_connect_host, "%s\n", strerror(errno));
        return -1;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    memcpy(&address.sin_addr, entry->h_addr_list[0], sizeof(address.sin_addr));
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0); // a failed one fails the connect
    // No newline: the next line completes it.
    fprintf(stderr, "Connect to %s:%d......", inet_ntoa(address.sin_addr), port);
    if (connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) < 0) {
        diagnose(at_connect_socket, "%s\n", strerror(errno)); // kept: the socket stays open
        return -1;
    }
    fprintf(stderr, "connected\nsock = %d\n", socket);
    // Kept: a failed handshake is only reported, and the request then fails at its first write.
    self->socket = socket;
    self->secured = handshake(self);
    if (!self->secured)
        diagnose(at_connect_handshake, function_failed);
    return socket;
}

void cyassl_client_release(cyassl_client *self)
{
    diagnose(at_release, checkpoint);
    // Kept: the socket is its user's, and the record stays, a few bytes in a run that ends soon.
    wolfSSL_shutdown(self->connection);
    wolfSSL_free(self->connection);
    wolfSSL_CTX_free(self->context);
}

bool may_pass(const cyassl_client *self)
{
    return self->secured && !self->timed_out;
}

int cyassl_client_read(cyassl_client *self, void *buffer, int length)
{
    diagnose(at_read, checkpoint);
    return may_pass(self) ? wolfSSL_read(self->connection, buffer, length) : -1;
}

int cyassl_client_write(cyassl_client *self, const void *buffer, int length)
{
    return may_pass(self) ? wolfSSL_write(self->connection, buffer, length) : -1;
}

const cyassl_client_ops client_ops = {
    .connect = cyassl_client_connect,
    .release = cyassl_client_release,
    .read = cyassl_client_read,
    .write = cyassl_client_write,
};

} // namespace

const char *const cyassl_ca_file = ca_file;

cyassl_client *create_cyassl_client()
{
    diagnose(at_create, checkpoint);
    auto *self = static_cast<cyassl_client *>(calloc(1, sizeof(cyassl_client)));
    if (self == nullptr) {
        diagnose(at_create_memory, function_failed);
        return nullptr;
    }
    // Kept: what was made before a failure is not freed; the run ends with it.
    // NOLINTBEGIN(clang-analyzer-unix.Malloc)
    self->context = wolfSSL_CTX_new(client_method());
    if (self->context == nullptr) {
        diagnose(at_create_context, function_failed);
        return nullptr; // cppcheck-suppress memleak ; kept
    }
    if (wolfSSL_CTX_load_verify_locations(self->context, cyassl_ca_file, nullptr) !=
        WOLFSSL_SUCCESS) {
        diagnose(at_create_authority, function_failed);
        return nullptr; // cppcheck-suppress memleak ; kept
    }
    wolfSSL_CTX_SetIORecv(self->context, receive);
    wolfSSL_CTX_SetIOSend(self->context, transmit);
    self->socket = -1;
    if (!renew_connection(self)) {
        diagnose(at_create_connection, function_failed);
        return nullptr; // cppcheck-suppress memleak ; kept
    }
    // NOLINTEND(clang-analyzer-unix.Malloc)
    self->ops = &client_ops;
    return self;
}
