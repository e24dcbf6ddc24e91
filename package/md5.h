// SPDX-License-Identifier: GPL-2.0-or-later
//
// MD5 (RFC 1321), the digest of the package format: a thin face on the TLS library's own.
#pragma once

#include <cstdint>

constexpr int md5_digest_size = 16;

/// Room for the TLS library's own context, which only md5.cpp looks into.
struct MD5_context {
    alignas(16) uint8_t storage[128];
};

/// Begins a digest.
void MD5Init(MD5_context *context);

/// Takes `length` more bytes.
void MD5Update(MD5_context *context, const uint8_t *data, unsigned length);

/// Stores the digest; the context is spent.
void MD5Final(uint8_t digest[md5_digest_size], MD5_context *context);
