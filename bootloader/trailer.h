/* SPDX-License-Identifier: 0BSD
 *
 * For boot loaders: is what a partition holds whole?
 *
 * `upgrade` ends each partition that it has written with a trailer: its last 16 bytes are the
 * CRC-32 of the data, the data's length, a check word over both, and a magic number, four 32-bit
 * words in the device's own byte order. Only the CRC tells a whole partition: while a partition is
 * written its old trailer stands, with a check word that is right, over data that is new in front
 * and old behind.
 *
 * C99 without any library, any allocation and any data that is written to; at most 300 bytes of
 * stack besides the callback's own. Copy the two files into the boot loader; the licence asks for
 * nothing.
 *
 *     static int read_flash(void *context, uint32_t offset, void *into, uint32_t size) { ... }
 *
 *     if (trailer_check_partition(read_flash, 0, PARTITION_SIZE) == TRAILER_WHOLE)
 *         start();
 */
#ifndef UPGRADE_BOOTLOADER_TRAILER_H
#define UPGRADE_BOOTLOADER_TRAILER_H

#include <stdint.h>

enum trailer_result {
    TRAILER_WHOLE = 0,     /* the data is what was written, as far as a CRC-32 can tell: start it */
    TRAILER_MISSING = 1,   /* no trailer: nothing was ever written here, or not to its end */
    TRAILER_CRC_WRONG = 2, /* a trailer, and other data than it is of: half written, do not start */
    TRAILER_UNREADABLE = 3 /* the callback failed */
};

struct trailer {
    uint32_t crc; /* of the first `length` bytes of the partition */
    uint32_t length;
};

/* Reads `size` bytes, 1 to 256, at `offset` of the partition into `into`. 0 when all of them were
 * read, anything else ends the check with TRAILER_UNREADABLE. Offsets only grow, but for the first
 * call, which reads the trailer. */
typedef int (*trailer_read)(void *context, uint32_t offset, void *into, uint32_t size);

/* Judges the partition of `size` bytes. TRAILER_MISSING as well for one of less than 16 bytes, and
 * TRAILER_CRC_WRONG for a length beyond the partition. Reads all the data once, in order. */
enum trailer_result trailer_check_partition(trailer_read read, void *context, uint32_t size);

/* The trailer alone, quick and not enough to start anything by: TRAILER_WHOLE when there is one,
 * which then is in `found`, TRAILER_MISSING or TRAILER_UNREADABLE. */
enum trailer_result trailer_find(trailer_read read, void *context, uint32_t size,
                                 struct trailer *found);

#endif
