// SPDX-License-Identifier: GPL-2.0-or-later
//
// The flash partitions: files of exactly the partition's size. A write past the end is cut short,
// then refused with ENOSPC, as on a block device.
#pragma once

#include <sys/types.h>

#include "tools/simdev/core/descriptors.h"

/// Counters at 0; `seed` chooses what a fault leaves open.
void partitions_start(uint64_t seed);

/// Opens the file `mapped` for the device `path`, which is partition `partition`, and follows it.
int open_partition(const char *path, const char *mapped, int partition, int flags);

/// The calls on a partition's descriptor, each with the contract of its name.
ssize_t read_partition(int fd, slot *device, void *buffer, size_t size);
ssize_t write_partition(int fd, slot *device, const void *data, size_t size);
off64_t seek_partition(int fd, slot *device, off64_t offset, int whence);

/// Contract of sync: for the log, and for the fault that makes it slow.
void sim_sync();
