// SPDX-License-Identifier: GPL-2.0-or-later
//
// The firmware package as a file, in constants: docs/package-format.md says what each field means.
//
// For whoever reads, makes or checks packages. All numbers in the file are big-endian
// (platform/bytes.h). Condition code has its constants in package/condition_item.h.
#pragma once

#include <cstddef>
#include <cstdint>

/// The device's block buffer, and so the most that a package can hold. Header and part table lie
/// within the first block, and each part's data begins with a block.
constexpr int package_block_size = 4096;
constexpr int package_block_count = 1000;
constexpr size_t package_capacity = size_t{package_block_size} * package_block_count;

// The header.
constexpr int package_magic_offset = 0;
constexpr int package_version_offset = 4;
constexpr int package_encryption_offset = 6;
constexpr int package_size_offset = 8;
constexpr int package_checksum_offset = 12;
constexpr int package_header_size = 28; ///< bytes; the part table follows

constexpr uint32_t package_magic = 0xDBAD475E;
constexpr uint16_t package_version = 1;
constexpr int package_checksum_size = 16; ///< bytes of an MD5 digest

enum package_encryption : uint16_t {
    encryption_none = 0,
    encryption_rc4 = 1,
};

// An entry of the part table. Behind the conditions comes the features length, and then the
// features: see part_features_offset.
constexpr int part_header_size_offset = 0;
constexpr int part_type_offset = 2;
constexpr int part_compress_offset = 3;
constexpr int part_actual_size_offset = 4;
constexpr int part_size_offset = 8;
constexpr int part_offset_offset = 12;
constexpr int part_flags_offset = 16;
constexpr int part_conditions_length_offset = 20;
constexpr int part_conditions_offset = 22;

constexpr int package_part_count = 8;   ///< entries that a table can have
constexpr int part_entry_minimum = 20;  ///< the smallest header size of an entry
constexpr int part_field_alignment = 4; ///< of a length word and its field, padding included
constexpr int part_lookahead = 4;       ///< bytes wanted where an entry or the end is looked for
constexpr uint32_t part_flag_optional = 0x1; ///< the part may be dropped

/// Where an entry's features begin when its conditions have `conditions_length` bytes; the two
/// bytes before are their length.
constexpr int part_features_offset(int conditions_length)
{
    const int field = conditions_length + 2 + part_field_alignment - 1;
    return part_conditions_offset + field / part_field_alignment * part_field_alignment;
}

/// The types that are written to flash. Their number is the partition's, too.
enum part_type : int32_t {
    part_kernel = 2,
    part_base = 3,
    part_app = 4,
};
constexpr int part_type_count = 9; ///< types that have a name, from 0 (part_type_names)

/// Whether parts of `type` are written to flash: kernel, base and app alone.
constexpr bool part_type_is_writable(int32_t type)
{
    return type >= part_kernel && type <= part_app;
}
