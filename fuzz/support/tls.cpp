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

template<typename bytes>
int on_connection(ssize_t (*transfer)(int, bytes *, size_t), bytes *buffer, int size)
{
    if (fuzz::fails_now() || !fuzz::is_ours(connection_socket))
        return -1;
    return static_cast<int>(transfer(connection_socket, buffer, static_cast<size_t>(size)));
}

} // namespace

// A function of the library that gives `answer`.
#define REPLACED(result, name, answer, ...)                                                        \
    extern "C" result __wrap_##name(__VA_ARGS__);                                                  \
    extern "C" result __wrap_##name(__VA_ARGS__)                                                   \
    {                                                                                              \
        return answer;                                                                             \
    }

REPLACED(WOLFSSL_METHOD *, wolfSSLv23_client_method, reinterpret_cast<WOLFSSL_METHOD *>(&object),
         void)
REPLACED(WOLFSSL_CTX *, wolfSSL_CTX_new,
         fuzz::fails_now() ? nullptr : reinterpret_cast<WOLFSSL_CTX *>(&object), WOLFSSL_METHOD *)
REPLACED(int, wolfSSL_CTX_load_verify_locations,
         fuzz::fails_now() ? WOLFSSL_FAILURE : WOLFSSL_SUCCESS, WOLFSSL_CTX *, const char *,
         const char *)
REPLACED(WOLFSSL *, wolfSSL_new, fuzz::fails_now() ? nullptr : reinterpret_cast<WOLFSSL *>(&object),
         WOLFSSL_CTX *)
REPLACED(void, wolfSSL_set_verify, void(), WOLFSSL *, int, VerifyCallback)
REPLACED(void, wolfSSL_CTX_SetIORecv, void(), WOLFSSL_CTX *, CallbackIORecv)
REPLACED(void, wolfSSL_CTX_SetIOSend, void(), WOLFSSL_CTX *, CallbackIOSend)
REPLACED(void, wolfSSL_SetIOReadCtx, void(), WOLFSSL *, void *)
REPLACED(void, wolfSSL_SetIOWriteCtx, void(), WOLFSSL *, void *)
REPLACED(void, wolfSSL_free, void(), WOLFSSL *)
REPLACED(void, wolfSSL_CTX_free, void(), WOLFSSL_CTX *)
REPLACED(int, wolfSSL_shutdown, WOLFSSL_SUCCESS, WOLFSSL *)
REPLACED(int, wolfSSL_set_fd, (connection_socket = fd, WOLFSSL_SUCCESS), WOLFSSL *, int fd)
REPLACED(int, wolfSSL_connect, fuzz::fails_now() ? WOLFSSL_FATAL_ERROR : WOLFSSL_SUCCESS, WOLFSSL *)
REPLACED(int, wolfSSL_read, on_connection(fuzz::read_descriptor, buffer, size), WOLFSSL *,
         void *buffer, int size)
REPLACED(int, wolfSSL_write, on_connection(fuzz::write_descriptor, buffer, size), WOLFSSL *,
         const void *buffer, int size)
