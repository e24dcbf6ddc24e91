// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/iobuf.h"

#include <cerrno>
#include <cstdlib>
#include <sys/mman.h>

iobuf *iobuf_create(int block_size, int count)
{
    if (count < 1)
        return nullptr;
    static_assert(sizeof(iobuf) % alignof(uint8_t *) == 0, "the table follows the record");
    void *memory = calloc(1, sizeof(iobuf) + static_cast<size_t>(count) * sizeof(uint8_t *));
    if (memory == nullptr)
        return nullptr;
    auto *buffer = static_cast<iobuf *>(memory);
    buffer->block_size = block_size;
    buffer->count = count;
    buffer->blocks = reinterpret_cast<uint8_t **>(buffer + 1);
    return buffer;
}

uint8_t *iobuf_request(iobuf *buffer)
{
    if (buffer->current >= buffer->count)
        return nullptr;
    const auto size = static_cast<size_t>(buffer->block_size);
    uint8_t *&block = buffer->blocks[buffer->current];
    if (block == nullptr) {
        void *mapping = mmap(nullptr, size, PROT_NONE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (mapping == MAP_FAILED)
            return nullptr;
        block = static_cast<uint8_t *>(mapping);
    }
    if (mprotect(block, size, PROT_READ | PROT_WRITE) == 0 || errno == ENOSYS)
        return block;
    munmap(block, size);
    block = nullptr;
    return nullptr;
}

int iobuf_commit(iobuf *buffer)
{
    if (buffer->current >= buffer->count)
        return 0;
    mprotect(buffer->blocks[buffer->current], static_cast<size_t>(buffer->block_size), PROT_READ);
    buffer->current++;
    return 0;
}
