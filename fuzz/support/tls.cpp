// SPDX-License-Identifier: GPL-2.0-or-later
//
// In place of the TLS library: what is read and written is the stream itself, and a handshake fails
// where a caught call is to fail. Not the library is tested here but what is done with its answers.
#include <wolfssl/options.h>
// The order counts: the options say how the library was built.
#include <wolfssl/ssl.h>

#include "fuzz/support/wrap.h"

namespace {

char object; // what no function looks into
int connection_socket = -1;

} // namespace

#define REPLACED(result, name, ...)                                                                \
    extern "C" result __wrap_##name(__VA_ARGS__);                                                  \
    extern "C" result __wrap_##name(__VA_ARGS__)

REPLACED(WOLFSSL_METHOD *, wolfSSLv23_client_method, void)
{
    return reinterpret_cast<WOLFSSL_METHOD *>(&object);
}

REPLACED(WOLFSSL_CTX *, wolfSSL_CTX_new, WOLFSSL_METHOD *)
{
    return fuzz::fails_now() ? nullptr : reinterpret_cast<WOLFSSL_CTX *>(&object);
}

REPLACED(int, wolfSSL_CTX_load_verify_locations, WOLFSSL_CTX *, const char *, const char *)
{
    return fuzz::fails_now() ? WOLFSSL_FAILURE : WOLFSSL_SUCCESS;
}

REPLACED(WOLFSSL *, wolfSSL_new, WOLFSSL_CTX *)
{
    return fuzz::fails_now() ? nullptr : reinterpret_cast<WOLFSSL *>(&object);
}

REPLACED(void, wolfSSL_set_verify, WOLFSSL *, int, VerifyCallback) {}
REPLACED(void, wolfSSL_CTX_SetIORecv, WOLFSSL_CTX *, CallbackIORecv) {}
REPLACED(void, wolfSSL_CTX_SetIOSend, WOLFSSL_CTX *, CallbackIOSend) {}
REPLACED(void, wolfSSL_SetIOReadCtx, WOLFSSL *, void *) {}
REPLACED(void, wolfSSL_SetIOWriteCtx, WOLFSSL *, void *) {}
REPLACED(void, wolfSSL_free, WOLFSSL *) {}
REPLACED(void, wolfSSL_CTX_free, WOLFSSL_CTX *) {}

REPLACED(int, wolfSSL_shutdown, WOLFSSL *)
{
    return WOLFSSL_SUCCESS;
}

REPLACED(int, wolfSSL_set_fd, WOLFSSL *, int fd)
{
    connection_socket = fd;
    return WOLFSSL_SUCCESS;
}

REPLACED(int, wolfSSL_connect, WOLFSSL *)
{
    return fuzz::fails_now() ? WOLFSSL_FATAL_ERROR : WOLFSSL_SUCCESS;
}

REPLACED(int, wolfSSL_read, WOLFSSL *, void *buffer, int size)
{
    if (fuzz::fails_now() || !fuzz::is_ours(connection_socket))
        return -1;
    return static_cast<int>(
        fuzz::read_descriptor(connection_socket, buffer, static_cast<size_t>(size)));
}

REPLACED(int, wolfSSL_write, WOLFSSL *, const void *buffer, int size)
{
    if (fuzz::fails_now() || !fuzz::is_ours(connection_socket))
        return -1;
    return static_cast<int>(
        fuzz::write_descriptor(connection_socket, buffer, static_cast<size_t>(size)));
}
