// SPDX-License-Identifier: GPL-2.0-or-later
//
// Compiled by tls.cmake, which shows the errors below.
#include <wolfssl/options.h>

#include <wolfssl/ssl.h>
#include <wolfssl/version.h>
#include <wolfssl/wolfcrypt/md5.h>

#if LIBWOLFSSL_VERSION_HEX < 0x05000000
#error the TLS library is older than 5.0
#endif
#ifdef NO_MD5
#error the TLS library lacks MD5 (--enable-md5)
#endif
#ifdef NO_WOLFSSL_CLIENT
#error the TLS library lacks the client side (no NO_WOLFSSL_CLIENT)
#endif
#if defined(NO_TLS) || defined(WOLFSSL_NO_TLS12)
#error the TLS library lacks TLS 1.2 (--enable-tlsv12)
#endif
#if defined(NO_FILESYSTEM) || defined(NO_CERTS)
#error the TLS library cannot read a CA file (--enable-filesystem, no NO_CERTS)
#endif

int upgrade_uses(wc_Md5 *digest);
int upgrade_uses(wc_Md5 *digest)
{
    WOLFSSL_CTX *context = wolfSSL_CTX_new(wolfSSLv23_client_method());
    return wc_InitMd5(digest) + wolfSSL_CTX_load_verify_locations(context, "ca-cert.pem", nullptr);
}
