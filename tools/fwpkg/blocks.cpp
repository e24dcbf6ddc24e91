// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/blocks.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/mman.h>

namespace fwpkg {

namespace {

size_t mapped_bytes(int blocks)
{
    return static_cast<size_t>(blocks) * block_size;
}

} // namespace

void buffer_release::operator()(iobuf *buffer) const
{
    if (buffer->current > 0)
        munmap(buffer->blocks[0], mapped_bytes(buffer->current));
    free(buffer);
}

block_buffer load_blocks(std::span<const uint8_t> bytes)
{
    block_buffer buffer(iobuf_create(block_size, package_block_count));
    if (!buffer)
        throw std::bad_alloc();
    const size_t blocks = bytes.empty() ? 1 : (bytes.size() + block_size - 1) / block_size;
    // One mapping: the device's, a block each, would take longer than all that is done with them.
    void *const mapped = mmap(nullptr, blocks * block_size, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (mapped == MAP_FAILED)
        throw std::bad_alloc();
    auto *const begin = static_cast<uint8_t *>(mapped);
    std::copy(bytes.begin(), bytes.end(), begin); // which std::ranges does byte by byte here
    for (size_t i = 0; i < blocks; i++)
        buffer->blocks[i] = begin + i * block_size;
    buffer->current = static_cast<int>(blocks);
    buffer->total = static_cast<int>(bytes.size());
    return buffer;
}

std::vector<uint8_t> store_blocks(const iobuf *buffer)
{
    const std::span<const uint8_t> all = whole_blocks(buffer);
    return {all.begin(), all.begin() + buffer->total};
}

std::span<const uint8_t> whole_blocks(const iobuf *buffer)
{
    return {buffer->blocks[0], mapped_bytes(buffer->current)};
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
