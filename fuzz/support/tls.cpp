// SPDX-License-Identifier: GPL-2.0-or-later
//
// In place of the TLS library: what is read and written is the stream itself, and a handshake fails
// where a caught call is to fail. Not the library is tested here but what is done with its answers.
#include <wolfssl/options.h>
// The order counts: the options say how the library was built.
#include <wolfssl/ssl.h>

#include "fuzz/support/world.h"
#include "tools/simdev/core/real.h"

namespace {

char object; // what no function looks into
int connection_socket = -1;

// An object of the library, unless the call is the one to fail.
template<typename Object> Object *made()
{
    return fuzz::fails_now() ? nullptr : reinterpret_cast<Object *>(&object);
}

int done()
{
    return fuzz::fails_now() ? WOLFSSL_FAILURE : WOLFSSL_SUCCESS;
}

} // namespace

// A function of the library that gives `answer`.
#define REPLACED(result, name, answer, ...)                                                        \
    extern "C" result __wrap_##name(__VA_ARGS__);                                                  \
    extern "C" result __wrap_##name(__VA_ARGS__)                                                   \
    {                                                                                              \
        return answer;                                                                             \
    }

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
REPLACED(WOLFSSL_METHOD *, wolfSSLv23_client_method, reinterpret_cast<WOLFSSL_METHOD *>(&object),
         void)
REPLACED(WOLFSSL_CTX *, wolfSSL_CTX_new, made<WOLFSSL_CTX>(), WOLFSSL_METHOD *)
REPLACED(int, wolfSSL_CTX_load_verify_locations, done(), WOLFSSL_CTX *, const char *, const char *)
REPLACED(WOLFSSL *, wolfSSL_new, made<WOLFSSL>(), WOLFSSL_CTX *)
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
REPLACED(int, wolfSSL_read,
         static_cast<int>(real.read(connection_socket, buffer, static_cast<size_t>(size))),
         WOLFSSL *, void *buffer, int size)
REPLACED(int, wolfSSL_write,
         static_cast<int>(real.write(connection_socket, buffer, static_cast<size_t>(size))),
         WOLFSSL *, const void *buffer, int size)
// NOLINTEND(bugprone-reserved-identifier)
