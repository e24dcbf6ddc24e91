/* SPDX-License-Identifier: 0BSD */
#include "trailer.h"

enum { trailer_size = 16, piece_size = 256 };

static const uint32_t magic = 0x44427031u;

/* A word as the processor has it in memory, from bytes that may stand anywhere. */
static uint32_t load_word(const unsigned char *bytes)
{
    union {
        uint32_t word;
        unsigned char bytes[4];
    } both;
    int i;
    for (i = 0; i < 4; i++)
        both.bytes[i] = bytes[i];
    return both.word;
}

/* CRC-32 (IEEE 802.3) of `size` more bytes, four bits at a time: a table of 64 bytes in place of
 * one of 1024. `crc` is complemented, as it runs. */
static uint32_t add_to_crc(uint32_t crc, const unsigned char *bytes, uint32_t size)
{
    static const uint32_t nibbles[16] = {
        0x00000000u, 0x1db71064u, 0x3b6e20c8u, 0x26d930acu, 0x76dc4190u, 0x6b6b51f4u,
        0x4db26158u, 0x5005713cu, 0xedb88320u, 0xf00f9344u, 0xd6d6a3e8u, 0xcb61b38cu,
        0x9b64c2b0u, 0x86d3d2d4u, 0xa00ae278u, 0xbdbdf21cu,
    };
    uint32_t i;
    for (i = 0; i < size; i++) {
        crc ^= bytes[i];
        crc = (crc >> 4) ^ nibbles[crc & 15u];
        crc = (crc >> 4) ^ nibbles[crc & 15u];
    }
    return crc;
}

enum trailer_result trailer_find(trailer_read read, void *context, uint32_t size,
                                 struct trailer *found)
{
    unsigned char bytes[trailer_size];
    if (size < trailer_size)
        return TRAILER_MISSING;
    if (read(context, size - trailer_size, bytes, trailer_size) != 0)
        return TRAILER_UNREADABLE;
    found->crc = load_word(bytes);
    found->length = load_word(bytes + 4);
    if (load_word(bytes + 12) != magic ||
        load_word(bytes + 8) != found->crc + found->length + magic)
        return TRAILER_MISSING;
    return TRAILER_WHOLE;
}

enum trailer_result trailer_check_partition(trailer_read read, void *context, uint32_t size)
{
    unsigned char piece[piece_size];
    struct trailer trailer;
    uint32_t crc = 0xffffffffu;
    uint32_t offset;
    uint32_t count;
    const enum trailer_result found = trailer_find(read, context, size, &trailer);
    if (found != TRAILER_WHOLE)
        return found;
    if (trailer.length > size)
        return TRAILER_CRC_WRONG;
    for (offset = 0; offset < trailer.length; offset += count) {
        count = trailer.length - offset;
        if (count > piece_size)
            count = piece_size;
        if (read(context, offset, piece, count) != 0)
            return TRAILER_UNREADABLE;
        crc = add_to_crc(crc, piece, count);
    }
    return (crc ^ 0xffffffffu) == trailer.crc ? TRAILER_WHOLE : TRAILER_CRC_WRONG;
}
