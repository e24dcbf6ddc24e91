// SPDX-License-Identifier: GPL-2.0-or-later
//
// RC4, the stream cipher of enciphered packages: the standard schedule and generator, no bytes of
// the key stream discarded. It keeps out the curious; it authenticates nothing.
#pragma once

#include <cstdint>

/// Indices and permutation; lives on the stack of whoever deciphers.
struct rc4_state {
    int32_t x;
    int32_t y;
    int32_t m[256];
};

/// Key schedule over `length` bytes at `key`. With `length` 0 every step uses key[0], so `key` must
/// be readable there: an empty text acts as the one-byte key 00.
void rc4_setup(rc4_state *state, const uint8_t *key, int length);

/// XORs `length` bytes in place with the key stream, going on where the last call stopped.
void rc4_crypt(rc4_state *state, uint8_t *buffer, int length);
