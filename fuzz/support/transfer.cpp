// SPDX-License-Identifier: GPL-2.0-or-later
#include "fuzz/support/transfer.h"

#include <numeric>

#include "fuzz/support/fuzz.h"

namespace {

struct progress {
    downloader *download;
    iobuf *buffer;
    int calls_left; // the one that asks to stop
};

int count_progress(void *argument, int count)
{
    auto *progress = static_cast<struct progress *>(argument);
    fuzz::require(progress->buffer->total >= count, "what is told was counted before");
    progress->download->ops->length(progress->download);
    return --progress->calls_left;
}

} // namespace

int fuzz::transfer(downloader *(*open)(char *), char *url, uint8_t geometry, int callbacks)
{
    constexpr struct {
        int block_size;
        int count;
    } geometries[] = {{4096, 40}, {512, 6}, {700, 3}, {1, 64}};
    const auto &[block_size, count] = geometries[geometry % std::size(geometries)];
    downloader *download = open(url);
    iobuf *buffer = iobuf_create(block_size, count);
    if (download == nullptr || buffer == nullptr)
        return -1;
    progress progress = {.download = download, .buffer = buffer, .calls_left = callbacks};
    const int result = download->ops->download(download, buffer, count_progress, &progress);
    require(download->ops->result(download) == 0, "the result is 0");
    require(buffer->current >= 0 && buffer->current <= count, "the buffer's index is in its table");
    require(buffer->total >= 0 && buffer->total <= block_size * count, "the total fits the buffer");
    for (int i = 0; i < count; i++)
        require(i <= buffer->current || buffer->blocks[i] == nullptr, "no block is skipped");
    require(result != 0 || buffer->total >= download->ops->length(download),
            "a download that is done has all its bytes");
    int64_t sum = 0;
    for (int left = buffer->total, i = 0; left > 0; left -= block_size, i++) {
        const uint8_t *block = buffer->blocks[i];
        require(block != nullptr, "every byte that is counted has a block");
        sum = std::accumulate(block, block + std::min(left, block_size), sum);
    }
    require(sum <= int64_t{255} * buffer->total, "every byte can be read");
    return result;
}
