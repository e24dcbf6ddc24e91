/* SPDX-License-Identifier: GPL-2.0-or-later
 *
 * How scripts/build-tls-client configures the TLS library: a client alone, TLS 1.2 and 1.3 with
 * today's ciphers, verifying RSA and elliptic-curve certificates read from a file. It takes the
 * place of <wolfssl/options.h>, so that the library and its user see the same settings.
 */
#ifndef WOLFSSL_OPTIONS_H
#define WOLFSSL_OPTIONS_H

/* Left out: the server's half, versions before TLS 1.2, ciphers nobody should offer any more. */
#define NO_WOLFSSL_SERVER
#define NO_OLD_TLS
#define NO_DES3
#define NO_DH
#define NO_DSA
#define NO_MD4
#define NO_RC4
#define NO_PSK
#define NO_PWDBASED
#define NO_PKCS12
#define NO_PKCS8
#define NO_SESSION_CACHE
#define NO_ERROR_STRINGS
#define NO_WOLFSSL_MEMORY
#define SINGLE_THREADED

/* Elliptic curves and RSA, at constant time, on the library's smallest big-number code. */
#define HAVE_ECC
#define ECC_TIMING_RESISTANT
#define ECC_SHAMIR
#define TFM_TIMING_RESISTANT
#define WC_RSA_BLINDING
#define WC_RSA_PSS
#define WOLFSSL_SP_MATH_ALL
#define SP_INT_BITS 4096
#define HAVE_CURVE25519

#define HAVE_AESGCM
#define HAVE_AES_DECRYPT
#define HAVE_CHACHA
#define HAVE_POLY1305
#define WOLFSSL_SHA384
#define WOLFSSL_SHA512

/* Small, or quick with what 64-bit PCs have for it. */
#ifdef TLS_CLIENT_ASSEMBLY
#define WOLFSSL_AESNI
#define USE_INTEL_SPEEDUP
#define WOLFSSL_X86_64_BUILD
#else
#define WOLFSSL_SP_SMALL
#define CURVE25519_SMALL
#define GCM_SMALL
#define USE_SLOW_SHA256
#define USE_SLOW_SHA512
#endif

#define WOLFSSL_TLS13
#define HAVE_TLS_EXTENSIONS
#define HAVE_SUPPORTED_CURVES
#define HAVE_EXTENDED_MASTER
#define HAVE_ENCRYPT_THEN_MAC
#define HAVE_HKDF
#define HAVE_HASHDRBG

/* MD5 is the package format's digest, and kept for that. */
#endif
