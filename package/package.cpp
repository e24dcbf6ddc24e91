// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/package.h"

#include <algorithm>
#include <cstdio>

#include "platform/bytes.h"

namespace {

int invalid_size()
{
    fprintf(stderr, "invalid size\n");
    return -1;
}

void dump_part(int index, const package_part *part)
{
    printf("  part #%d:\n", index);
    if (part->type < part_type_count)
        printf("    type: %s\n", part_type_names[part->type]);
    else
        printf("    type: unknown<%d>\n", part->type);
    printf("    compress: %d\n", static_cast<int>(part->compress));
    printf("    actual size: %lu\n", static_cast<unsigned long>(part->actual_size));
    // Flags come before size and offset, unlike in the file. Kept: another order would change the
    // dump.
    printf("    flags: %08lx\n", static_cast<unsigned long>(part->flags));
    printf("    size: %lu\n", static_cast<unsigned long>(part->size));
    printf("    offset: %lu\n", static_cast<unsigned long>(part->offset));
}

} // namespace

void init_package_struct(package *record)
{
    *record = {};
    for (package_part &part : record->parts)
        part.type = -1;
}

int read_package_head(package *record, const uint8_t *block, int /*length*/)
{
    record->magic = load_be32(block + package_magic_offset);
    if (record->magic != package_magic) {
        fprintf(stderr, "Bad magic: %08lx\n", static_cast<unsigned long>(record->magic));
        return -1;
    }
    record->version = load_be16(block + package_version_offset);
    if (record->version != package_version) {
        fprintf(stderr, "Bad version: %d\n", record->version);
        return -1;
    }
    record->encryp = load_be16(block + package_encryption_offset);
    record->size = load_be32(block + package_size_offset);
    record->checksum = block + package_checksum_offset;
    return 0;
}

int read_package_parts(package *record, const uint8_t *block, int length)
{
    if (length < package_header_size)
        return -1;
    int offset = package_header_size;
    for (int index = 0; index < package_part_count; index++) {
        // An entry may claim to end beyond the block; the next one then has nothing remaining.
        const uint8_t *entry = block + std::min(offset, length);
        const int header_size = read_part(&record->parts[index], entry, length - offset);
        if (header_size < 0) {
            fprintf(stderr, "error while reading part info\n");
            return -1;
        }
        if (header_size == 0)
            return index;
        offset += header_size;
    }
    return package_part_count;
}

int read_part(package_part *part, const uint8_t *entry, int remaining)
{
    if (remaining < part_lookahead)
        return invalid_size();
    const int header_size = load_be16(entry + part_header_size_offset);
    if (header_size == 0)
        return 0;
    if (header_size < part_entry_minimum) {
        fprintf(stderr, "invalid part header size: %d\n", header_size);
        return -1;
    }
    if (remaining < part_conditions_offset)
        return invalid_size();
    part->type = entry[part_type_offset];
    part->compress = entry[part_compress_offset];
    part->actual_size = load_be32(entry + part_actual_size_offset);
    part->size = load_be32(entry + part_size_offset);
    part->offset = load_be32(entry + part_offset_offset);
    part->flags = load_be32(entry + part_flags_offset);
    part->conditions_length = load_be16(entry + part_conditions_length_offset);
    part->conditions = entry + part_conditions_offset;
    const int features = part_features_offset(part->conditions_length);
    if (remaining < features)
        return invalid_size();
    part->features_length = load_be16(entry + features - 2);
    part->features = entry + features;
    if (remaining < features + part->features_length)
        return invalid_size();
    return header_size;
}

void dump_package(const package *record)
{
    printf("magic: %08lx\n", static_cast<unsigned long>(record->magic));
    printf("checksum: ");
    for (int i = 0; i < package_checksum_size; i++)
        printf("%02x ", record->checksum[i]);
    printf("\nversion: %d\n", record->version);
    printf("encryp: %d\n", record->encryp);
    printf("size: %lu\n", static_cast<unsigned long>(record->size));
    for (int i = 0; i < package_part_count && record->parts[i].type >= 0; i++)
        dump_part(i, &record->parts[i]);
}

const char *const part_type_names[part_type_count] = {
    "image", "unknown<1>", "kernel", "base", "app", "unkown<5>", "unkown<6>", "unkown<7>", "bios",
};
