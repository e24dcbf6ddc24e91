// SPDX-License-Identifier: GPL-2.0-or-later
//
// The firmware package: its record in memory, the readers that fill it, and its dump.
//
// A package is a header of 28 bytes in clear, a table of at most eight part entries and the parts'
// data; docs/package-format.md has every field. All numbers in the file are big-endian. Header and
// table lie within the first block of the block buffer, and the record's pointers point into it.
#pragma once

#include <cstdint>

#include "package/format.h"

/// One entry of the part table.
struct package_part {
    int32_t type;               ///< 0 to 255, -1 in an empty slot: it ends every walk of the table
    uint32_t compress;          ///< shown by the dump, no other use
    uint32_t actual_size;       ///< bytes needed on the flash partition; 0 skips the device check
    uint32_t size;              ///< bytes of data in the package; 0 means nothing is written
    uint32_t offset;            ///< byte position of the data from the package's first byte
    uint32_t flags;             ///< part_flag_optional
    uint16_t conditions_length; ///< bytes at `conditions`
    const uint8_t *conditions;  ///< compiled condition code, in the first block
    uint16_t features_length;   ///< bytes at `features`
    const uint8_t *features;    ///< NUL-terminated names and values in turn, in the first block
};

/// The package record. `checksum`, `conditions` and `features` point into the first block of the
/// block buffer, which therefore outlives it.
struct package {
    uint32_t magic;
    const uint8_t *checksum; ///< the header's 16 digest bytes, null until the header was accepted
    uint16_t version;
    uint16_t encryp; ///< package_encryption
    uint32_t size;   ///< bytes of the whole package, header included
    package_part parts[package_part_count];
};

/// The names of the part types 0 to 8. They also name the environment variables of the device's
/// requirements, so the spellings are fixed, "unkown" included.
extern const char *const part_type_names[part_type_count];

/// Zeroes the record and marks all part slots empty (type -1).
void init_package_struct(package *record);

/// Reads the header at `block`, the first block. 0, or -1 with one line on standard error for a
/// wrong magic or version; what was read before the failure stays in the record, the wrong value
/// included. `length` is not looked at: the caller's block is larger than any header.
int read_package_head(package *record, const uint8_t *block, int length);

/// Reads the part table in the `length` bytes of the first block, deciphered. Returns the number of
/// entries, 0 to 8; eight are read without looking for the end mark. -1 on failure: without a
/// message when `length` is below the header's size, else with read_part's line and one more.
int read_package_parts(package *record, const uint8_t *block, int length);

/// Reads one entry of which `remaining` bytes (signed) are there. Returns its header size, by which
/// the caller steps to the next entry; 0 at the end mark, the record untouched; -1 with one line on
/// standard error when the header size is 1 to 19 or when bytes that are read lie beyond
/// `remaining`. The header size bounds nothing: the variable fields may run past it.
int read_part(package_part *part, const uint8_t *entry, int remaining);

/// Prints the record on standard output, the part table up to its first empty slot.
void dump_package(const package *record);
