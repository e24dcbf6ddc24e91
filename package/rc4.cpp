// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/rc4.h"

void rc4_setup(rc4_state *state, const uint8_t *key, int length)
{
    state->x = 0;
    state->y = 0;
    for (int i = 0; i < 256; i++)
        state->m[i] = i;
    int j = 0;
    int k = 0;
    for (int i = 0; i < 256; i++) {
        const int32_t a = state->m[i];
        j = (j + a + key[k]) & 0xFF;
        state->m[i] = state->m[j];
        state->m[j] = a;
        if (++k >= length)
            k = 0;
    }
}

void rc4_crypt(rc4_state *state, uint8_t *buffer, int length)
{
    int32_t *const m = state->m;
    int32_t x = state->x;
    int32_t y = state->y;
    for (int i = 0; i < length; i++) {
        x = (x + 1) & 0xFF;
        const int32_t a = m[x];
        y = (y + a) & 0xFF;
        const int32_t b = m[y];
        m[x] = b;
        m[y] = a;
        buffer[i] = static_cast<uint8_t>(buffer[i] ^ m[(a + b) & 0xFF]);
    }
    state->x = x;
    state->y = y;
}
