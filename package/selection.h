// SPDX-License-Identifier: GPL-2.0-or-later
//
// Which parts of a package a device takes.
//
// The verdicts of the device program and of whoever foretells them. Nothing is printed and nothing
// is opened: the caller turns verdicts into words, and answers for the size of a partition.
#pragma once

#include <cstdint>

#include "download/iobuf.h"
#include "package/package.h"

/// What is against a part; the first of them, in this order.
enum part_fault {
    part_fault_none,
    part_fault_conditions,  ///< the device does not meet the part's conditions
    part_fault_requirement, ///< the part does not meet the device's requirement
    part_fault_partition,   ///< its partition cannot be opened
    part_fault_room,        ///< its partition is smaller than its actual size
};

struct part_verdict {
    part_fault fault;
    bool refused; ///< the part is mandatory, and its fault refuses the package
};

/// Stores the size of the partition of parts of `type` in bytes at `size` (all ones where it cannot
/// be found); false when the partition cannot be opened. `context` is what judge_part was given.
using partition_size_function = bool (*)(void *context, int32_t type, uint64_t *size);

/// Judges a part, in the order of the faults above: its conditions by getsyscfg, the device's
/// requirement by eval_features, and, where its actual size is above 0, its partition. An optional
/// part with a fault is dropped: both its sizes become 0. For a mandatory one the judging ends with
/// its fault. Malformed conditions (-1) count as met.
///
/// The requirement is asked even of a part that its own conditions just dropped: asking uses up the
/// requirement's text, so a later part of the type finds the same as after a part that was taken.
part_verdict judge_part(package_part *part, partition_size_function partition_size, void *context);

/// The index of the first part of which a block that the flash writer would take is not in
/// `buffer`, -1 when all are there. The writer takes none for a type that is not written and for a
/// size that is 0 or less as a signed number.
int first_absent_part(const package *record, const iobuf *buffer);
