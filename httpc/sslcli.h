// SPDX-License-Identifier: GPL-2.0-or-later
//
// The TLS client object, which stands in for a plain socket where a URL begins with "https".
//
// Its four operations are reached through its table only. The server's certificate is checked
// against the CA file, its name against nothing: whoever holds a certificate of that CA is trusted.
// Each connect makes a handshake of its own. With the MD5 of the package this is all that uses the
// TLS library, whose types are only named here.
#pragma once

#include <cstdint>

struct WOLFSSL;
struct WOLFSSL_CTX;
struct cyassl_client;

struct cyassl_client_ops {
    /// Opens a socket to `host` and `port` and makes the handshake. The socket, which the caller
    /// closes; it is returned after a failed handshake too, and then each read and write on it
    /// fails; the next connect tries anew, unless the handshake ended with a wait (see `read`). -1
    /// when the host is null or unknown or a wait has passed before (no socket), or the connect
    /// fails (the socket is left).
    int (*connect)(cyassl_client *self, const char *host, uint16_t port);
    /// Ends the connection and frees the library's objects, not the record; closes no socket.
    void (*release)(cyassl_client *self);
    /// The bytes read, 0 at the end of the connection, or a negative value. Waits 300 s at most
    /// for each piece of a record; after one such wait has passed all that follows fails at once,
    /// later connects included.
    int (*read)(cyassl_client *self, void *buffer, int length);
    /// The bytes written or a negative value; waits as `read` does.
    int (*write)(cyassl_client *self, const void *buffer, int length);
};

struct cyassl_client {
    const cyassl_client_ops *ops;
    int socket; ///< set by `connect`, -1 before; -1 again, by who closes it, so that nothing is
                ///< sent
    WOLFSSL *connection;
    WOLFSSL_CTX *context;
    bool used;      ///< `connection` is null or has begun a handshake: the next one needs a new one
    bool secured;   ///< the handshake was made: nothing is read or written without
    bool timed_out; ///< a wait has passed: nothing more is tried
};

/// The certificates of the authorities that are trusted, in PEM form.
extern const char *const cyassl_ca_file;

/// A new object, not connected; it is never freed, finished or not. Null without memory, without a
/// readable CA file or where the library makes no objects (each with one line on standard error).
cyassl_client *create_cyassl_client();
