// SPDX-License-Identifier: GPL-2.0-or-later
//
// The block buffer: the downloaded package in memory, as a table of separately mapped blocks.
//
// Package byte o lies in blocks[o / block_size] at position o % block_size. A downloader requests
// the block at `current`, fills it from its start while it adds to `total`, commits it and requests
// the next; a last block that is only partly filled is committed too. Readers walk `blocks` in
// place: the package is never copied. Nothing is released before the process exits.
//
// A block is absent (null), then readable and writable, then read-only once committed. Where the
// system has no page protection (`mprotect` fails with ENOSYS) it simply stays writable.
#pragma once

#include <cstdint>

struct iobuf {
    int block_size;   ///< bytes a block
    int count;        ///< entries in `blocks`
    int current;      ///< index of the block being filled, from 0
    int total;        ///< bytes received over all blocks; the downloaders add to it
    uint8_t **blocks; ///< `count` block addresses, behind the record in its own allocation
};

/// A new buffer of `count` blocks of `block_size` bytes, none of them mapped yet. Null when `count`
/// is below 1 or there is no memory.
iobuf *iobuf_create(int block_size, int count);

/// The start of the block at `current`, zero-filled when new and writable; the same address until
/// it is committed. Null when the block cannot be mapped or made writable (nothing is stored then)
/// and when `current` has reached `count`.
uint8_t *iobuf_request(iobuf *buffer);

/// Seals the block at `current` read-only, whether or not the system can, and moves on to the next.
/// Returns 0. Does nothing when `current` has reached `count`.
int iobuf_commit(iobuf *buffer);
