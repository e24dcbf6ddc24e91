// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/package.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr int part_conditions_offset = 22; // behind the fixed fields and the conditions length word

uint16_t load_be16(const uint8_t *bytes)
{
    return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
}

uint32_t load_be32(const uint8_t *bytes)
{
    return static_cast<uint32_t>(load_be16(bytes)) << 16 | load_be16(bytes + 2);
}

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
    // Flags come before size and offset, unlike in the file: readers of the dump rely on it.
    printf("    flags: %08lx\n", static_cast<unsigned long>(part->flags));
    printf("    size: %lu\n", static_cast<unsigned long>(part->size));
    printf("    offset: %lu\n", static_cast<unsigned long>(part->offset));
}

} // namespace

void init_package_struct(package *package)
{
    *package = {};
    for (package_part &part : package->parts)
        part.type = -1;
}

int read_package_head(package *package, const uint8_t *block, int /*length*/)
{
    package->magic = load_be32(block);
    if (package->magic != package_magic) {
        fprintf(stderr, "Bad magic: %08lx\n", static_cast<unsigned long>(package->magic));
        return -1;
    }
    package->version = load_be16(block + 4);
    if (package->version != package_version) {
        fprintf(stderr, "Bad version: %d\n", package->version);
        return -1;
    }
    package->encryp = load_be16(block + 6);
    package->size = load_be32(block + 8);
    package->checksum = block + package_checksum_offset;
    return 0;
}

int read_package_parts(package *package, const uint8_t *block, int length)
{
    if (length < package_header_size)
        return -1;
    int offset = package_header_size;
    for (int index = 0; index < package_part_count; index++) {
        // An entry may claim to end beyond the block; the next one then has nothing remaining.
        const uint8_t *entry = block + std::min(offset, length);
        const int header_size = read_part(&package->parts[index], entry, length - offset);
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
    if (remaining <= 3)
        return invalid_size();
    const int header_size = load_be16(entry);
    if (header_size == 0)
        return 0;
    if (header_size < part_entry_minimum) {
        fprintf(stderr, "invalid part header size: %d\n", header_size);
        return -1;
    }
    if (remaining < part_conditions_offset)
        return invalid_size();
    part->type = entry[2];
    part->compress = entry[3];
    part->actual_size = load_be32(entry + 4);
    part->size = load_be32(entry + 8);
    part->offset = load_be32(entry + 12);
    part->flags = load_be32(entry + 16);
    part->conditions_length = load_be16(entry + 20);
    part->conditions = entry + part_conditions_offset;
    // The conditions length word and the conditions, padded to a multiple of 4.
    const int padded = (part->conditions_length + 5) & ~3;
    if (remaining < part_conditions_offset + padded)
        return invalid_size();
    part->features_length = load_be16(entry + part_entry_minimum + padded);
    part->features = entry + part_conditions_offset + padded;
    if (remaining < part_conditions_offset + padded + part->features_length)
        return invalid_size();
    return header_size;
}

void dump_package(const package *package)
{
    printf("magic: %08lx\n", static_cast<unsigned long>(package->magic));
    printf("checksum: ");
    for (int i = 0; i < package_checksum_size; i++)
        printf("%02x ", package->checksum[i]);
    printf("\nversion: %d\n", package->version);
    printf("encryp: %d\n", package->encryp);
    printf("size: %lu\n", static_cast<unsigned long>(package->size));
    for (int i = 0; i < package_part_count && package->parts[i].type >= 0; i++)
        dump_part(i, &package->parts[i]);
}

const char *const part_type_names[part_type_count] = {
    "image", "unknown<1>", "kernel", "base", "app", "unkown<5>", "unkown<6>", "unkown<7>", "bios",
};
