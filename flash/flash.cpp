// SPDX-License-Identifier: GPL-2.0-or-later
#include "flash/flash.h"

#include <algorithm>
#include <alloca.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "flash/crc32.h"
#include "flash/trailer.h"
#include "platform/device.h"
#include "upgrade/status.h"

namespace {

constexpr int retry_rest_microseconds = 400'000;

using blocks_function = int (*)(int fd, uint8_t *const *blocks, int32_t block_size, int32_t length,
                                progress_callback callback, void *callback_context);

// Opens the part's device with `flags` and hands its blocks to `process`. 0, or -1.
int process_part(upgrade_context *context, const package_part *part, int flags,
                 blocks_function process)
{
    if (!part_type_is_writable(part->type)) {
        fprintf(stderr, "writing partition %d not supported\n", part->type);
        return -1;
    }
    const partition_name device = partition_device(part->type);
    const int fd = open(device.text, flags);
    // Both lines are followed by an empty one, and the reader says "writing" too: readers of the
    // log know them so.
    if (fd < 0) {
        fprintf(stderr, "cannot open %s for writing\n\n", device.text);
        return -1;
    }
    fprintf(stderr, "open %s for writing\n\n", device.text);
    const iobuf *buffer = context->iobuf;
    uint8_t *const *blocks =
        buffer->blocks + part->offset / static_cast<uint32_t>(buffer->block_size);
    if (process(fd, blocks, buffer->block_size, static_cast<int32_t>(part->size), upgrade_callback,
                context) < 0) {
        fprintf(stderr, "error writing to %s\n", device.text);
        return -1; // the device stays open: the process ends soon, and nothing is released
    }
    close(fd);
    return 0;
}

int process_parts(upgrade_context *context, int flags, blocks_function process)
{
    for (const package_part &part : context->package.parts) {
        if (part.type < 0)
            break;
        if (part.size != 0 && process_part(context, &part, flags, process) < 0)
            return -1;
    }
    return 0;
}

void write_block(int fd, const uint8_t *block, int32_t size, int index)
{
    // No bound: see the header. A short write counts as a whole one.
    while (write(fd, block, static_cast<size_t>(size)) < 0) {
        fprintf(stderr, "write block #%d failed: %s\n", index, strerror(errno));
        usleep(retry_rest_microseconds);
    }
}

void write_trailer(int fd, uint32_t crc, uint32_t length)
{
    const partition_trailer trailer = {
        .crc = crc,
        .length = length,
        .check = trailer_check(crc, length),
        .magic = partition_trailer_magic,
    };
    // Kept: when the seek fails the trailer goes to where the device stands, behind the data. The
    // old one at the partition's end does not fit new data, so the boot loader refuses it either
    // way; without this write there would be one less in whoever counts them.
    if (lseek(fd, -static_cast<off_t>(sizeof trailer), SEEK_END) < 0)
        fprintf(stderr, "partition checksum seek error: %s\n\n", strerror(errno));
    if (write(fd, &trailer, sizeof trailer) < 0)
        fprintf(stderr, "partition checksum write error: %s\n\n", strerror(errno));
    sync();
    usleep(trailer_rest_microseconds);
}

// Compares the part's last block, of `size` bytes, more than 0 and at most a whole block.
bool verify_last_block(int fd, const uint8_t *block, uint8_t *scratch, int32_t block_size,
                       int32_t size, int index)
{
    // Kept: a whole block is asked for, also where less is compared.
    if (read(fd, scratch, static_cast<size_t>(block_size)) < size) {
        fprintf(stderr, "read last block #%d failed: %s\n", index, strerror(errno));
        return false;
    }
    if (memcmp(scratch, block, static_cast<size_t>(size)) != 0) {
        fprintf(stderr, "last block #%d differ\n", index);
        return false;
    }
    return true;
}

} // namespace

int write_package(upgrade_context *context)
{
    return process_parts(context, O_WRONLY, write_blocks);
}

int verify_package(upgrade_context *context)
{
    // verify_blocks gives 0 for a difference, which is no failure here.
    return process_parts(context, O_RDONLY, verify_blocks);
}

int write_blocks(int fd, uint8_t *const *blocks, int32_t block_size, int32_t length,
                 progress_callback callback, void *callback_context)
{
    uint32_t crc = 0;
    int index = 0;
    for (int32_t remaining = length; remaining > 0; remaining -= block_size) {
        const int32_t size = std::min(remaining, block_size);
        write_block(fd, blocks[index], size, index);
        crc = crc32(crc, blocks[index], static_cast<size_t>(size));
        sync();
        if (callback != nullptr && callback(callback_context, size) <= 0)
            return index; // no trailer: what was written is not whole
        index++;
        usleep(block_rest_microseconds);
    }
    write_trailer(fd, crc, static_cast<uint32_t>(length));
    return index;
}

int verify_blocks(int fd, uint8_t *const *blocks, int32_t block_size, int32_t length,
                  progress_callback callback, void *callback_context)
{
    // cppcheck-suppress allocaCalled ; once a call, and a block has a page
    auto *scratch = static_cast<uint8_t *>(alloca(static_cast<size_t>(block_size)));
    const auto whole = static_cast<size_t>(block_size);
    int index = 0;
    int32_t remaining = length;
    // Strictly more: a last block, whole or not, is compared apart.
    for (; remaining > block_size; remaining -= block_size) {
        if (read(fd, scratch, whole) != block_size) {
            fprintf(stderr, "read block #%d failed: %s\n", index, strerror(errno));
            return 0;
        }
        if (memcmp(scratch, blocks[index], whole) != 0) {
            fprintf(stderr, "block #%d differ\n", index);
            return 0;
        }
        if (callback != nullptr)
            callback(callback_context, block_size);
        index++;
    }
    if (remaining <= 0)
        return 1;
    if (!verify_last_block(fd, blocks[index], scratch, block_size, remaining, index))
        return 0;
    if (callback != nullptr)
        callback(callback_context, remaining);
    return 1;
}
