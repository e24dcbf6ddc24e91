// SPDX-License-Identifier: GPL-2.0-or-later
//
// Writing the selected parts to their raw flash partitions, and reading them back.
//
// Data goes block by block straight from the block buffer to /dev/fla<type>, each block followed by
// `sync`, the progress callback and 40 ms of rest for the flash. The last 16 bytes of the partition
// then get a trailer that the boot loader checks (flash/trailer.h). The old trailer stands until
// that last step.
#pragma once

#include <cstdint>

#include "platform/progress.h"
#include "upgrade/context.h"

constexpr int block_rest_microseconds = 40'000;    ///< after each block written
constexpr int trailer_rest_microseconds = 100'000; ///< after each trailer

/// Writes every part whose size is not 0, in table order. 0, or -1 at the first part that is not of
/// type 2, 3 or 4 or whose device cannot be opened. The buffer has all blocks of the parts of these
/// types: process_package saw to it.
int write_package(upgrade_context *context);

/// Reads every part whose size is not 0 back. 0, or -1 as write_package. A difference or a failed
/// read is reported on standard error and is a success all the same. Kept: a device whose flash
/// reads back different would fail its upgrades from one version to the next. The messages are the
/// writer's own, "writing" included.
int verify_package(upgrade_context *context);

/// Writes `length` bytes from the table `blocks` of `block_size` bytes each to the open device
/// `fd`, then the trailer. After each block `callback`, unless null, gets `callback_context` and
/// the block's bytes. Returns the number of blocks written; when the callback gives 0 or less, the
/// index of the block just written, and no trailer. With `length` of 0 or less only the trailer is
/// written.
///
/// A failed block is written again after 400 ms, without end: half a partition is worth less than a
/// device that the watchdog resets. A short write counts as a whole one. `block_size` is above 0.
int write_blocks(int fd, uint8_t *const *blocks, int32_t block_size, int32_t length,
                 progress_callback callback, void *callback_context);

/// Compares `length` bytes of `fd` with the table `blocks`: 1 when all are the same, 0 at the first
/// difference or failed read, with one line on standard error. `callback`, unless null, is told
/// each block's bytes, and its result ignored. The trailer is not read. `block_size` is above 0.
int verify_blocks(int fd, uint8_t *const *blocks, int32_t block_size, int32_t length,
                  progress_callback callback, void *callback_context);
