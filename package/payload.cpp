// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/payload.h"

#include <cstdio>

void walk_payload(const package *record, const iobuf *buffer, visit_bytes visit, void *state)
{
    const int block_size = buffer->block_size;
    // The whole rest of the first block, however short the package: the format's digest has it.
    visit(state, buffer->blocks[0] + package_header_size, block_size - package_header_size);
    int remaining = static_cast<int>(record->size) - block_size;
    int index = 1;
    for (; remaining > block_size; remaining -= block_size)
        visit(state, buffer->blocks[index++], block_size);
    if (remaining > 0)
        visit(state, buffer->blocks[index], remaining);
}

bool package_length_is_right(const package *record, const iobuf *buffer)
{
    if (record->size == static_cast<uint32_t>(buffer->total))
        return true;
    fprintf(stderr, "Bad package length!\n");
    return false;
}
