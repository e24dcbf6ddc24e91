// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/blocks.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/mman.h>

namespace fwpkg {

void buffer_release::operator()(iobuf *buffer) const
{
    for (int i = 0; i < buffer->count; i++) {
        if (buffer->blocks[i] != nullptr)
            munmap(buffer->blocks[i], static_cast<size_t>(buffer->block_size));
    }
    free(buffer);
}

block_buffer load_blocks(std::span<const uint8_t> bytes)
{
    block_buffer buffer(iobuf_create(package_block_size, package_block_count));
    if (!buffer)
        throw std::bad_alloc();
    do {
        uint8_t *block = iobuf_request(buffer.get());
        if (block == nullptr)
            throw std::bad_alloc();
        const size_t length = std::min(bytes.size(), size_t{block_size});
        std::copy_n(bytes.begin(), length, block);
        buffer->total += static_cast<int>(length);
        bytes = bytes.subspan(length);
        iobuf_commit(buffer.get());
    } while (!bytes.empty());
    return buffer;
}

std::vector<uint8_t> store_blocks(const iobuf *buffer)
{
    std::vector<uint8_t> bytes;
    bytes.reserve(static_cast<size_t>(buffer->total));
    for (int left = buffer->total, i = 0; left > 0; left -= buffer->block_size, i++) {
        const uint8_t *block = buffer->blocks[i];
        bytes.insert(bytes.end(), block, block + std::min(left, buffer->block_size));
    }
    return bytes;
}

device_words::device_words() : shown(stderr), kept(open_memstream(&text, &length))
{
    if (kept == nullptr)
        throw std::bad_alloc();
    stderr = kept; // the C library lets a program put another stream there
}

device_words::~device_words()
{
    stderr = shown;
    fclose(kept);
    free(text);
}

std::string device_words::lines()
{
    fflush(kept);
    std::string result;
    for (size_t i = 0; i < length; i++) {
        if (text[i] != '\n')
            result += text[i];
        else if (i + 1 < length)
            result += "; ";
    }
    return result;
}

} // namespace fwpkg
