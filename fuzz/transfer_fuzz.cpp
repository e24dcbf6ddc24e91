// SPDX-License-Identifier: GPL-2.0-or-later
//
// A whole download from servers that the input plays (the script in support/world.h: of FTP the
// control connection's bytes, then the data connection's; of HTTP a connection for the first
// request and for each redirect; of TFTP datagrams), with one call that fails and a callback that
// may ask to stop. A target is built for each protocol; FUZZ_PREFIX is what its URLs begin with.
#include <cstring>
#include <numeric>

#include "download/downloaders.h"
#include "fuzz/support/fuzz.h"
#include "fuzz/support/world.h"

namespace {

struct progress {
    downloader *download;
    iobuf *buffer;
    int calls_left; // the one that asks to stop
};

constexpr struct {
    int block_size;
    int count;
} geometries[] = {{4096, 40}, {512, 6}, {700, 3}, {1, 64}};

int count_progress(void *argument, int count)
{
    auto *told = static_cast<progress *>(argument);
    fuzz::require(told->buffer->total >= count, "what is told was counted before");
    told->download->ops->length(told->download);
    return --told->calls_left;
}

// Gives the number of blocks that there are.
size_t check_buffer(const iobuf *buffer)
{
    size_t blocks = 0;
    fuzz::require(buffer->current >= 0 && buffer->current <= buffer->count,
                  "the buffer's index is in its table");
    fuzz::require(buffer->total >= 0 && buffer->total <= buffer->block_size * buffer->count,
                  "the total fits the buffer");
    for (int i = 0; i < buffer->count; i++) {
        fuzz::require(i <= buffer->current || buffer->blocks[i] == nullptr, "no block is skipped");
        blocks += buffer->blocks[i] != nullptr ? 1 : 0;
    }
    int64_t sum = 0;
    for (int left = buffer->total, i = 0; left > 0; left -= buffer->block_size, i++) {
        const uint8_t *block = buffer->blocks[i];
        fuzz::require(block != nullptr, "every byte that is counted has a block");
        sum = std::accumulate(block, block + std::min(left, buffer->block_size), sum);
    }
    fuzz::require(sum <= int64_t{255} * buffer->total, "every byte can be read");
    return blocks;
}

void check_what_is_left(const std::string &url, const fuzz::world &world, int result,
                        size_t allocations)
{
    const size_t open = fuzz::run::open_descriptors();
    const bool ftp = strncasecmp(url.c_str(), "ftp", 3) == 0;
    const bool tftp = strncasecmp(url.c_str(), "tftp", 4) == 0;
    fuzz::require(result >= -1 && result <= (ftp ? 0 : 1), "done, failed, stopped or no socket");
    if (tftp || (ftp && result == 0)) {
        fuzz::require(open == 0, "nothing is left open");
    } else if (open > (ftp ? 2 : 1)) {
        const std::string said = url + std::string(world.script.begin(), world.script.end());
        fuzz::require(open == 2 && world.fault != 0 && said.find("https") != std::string::npos,
                      "a connection that is left is closed, but for a handshake that failed");
    }
    fuzz::require(allocations == 0 || !(ftp || tftp), "nothing is kept but the blocks");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::input input(data, size);
    const auto &[block_size, count] = geometries[input.byte() % std::size(geometries)];
    progress told = {.download = nullptr, .buffer = nullptr, .calls_left = input.byte() + 1};
    fuzz::world world;
    world.fault = input.word();
    std::vector<char> url = fuzz::exact_text(FUZZ_PREFIX + input.text());
    const std::string name = url.data(); // the downloader takes the URL apart
    world.script = input.rest();
    const fuzz::run run(&world);
    downloader *download = told.download = downloader_open(url.data());
    iobuf *buffer = told.buffer = iobuf_create(block_size, count);
    if (download == nullptr || buffer == nullptr)
        return 0;
    const size_t before = fuzz::run::allocations();
    const int result = download->ops->download(download, buffer, count_progress, &told);
    fuzz::require(download->ops->result(download) == 0, "the result is 0");
    fuzz::require(result != 0 || buffer->total >= download->ops->length(download),
                  "a download that is done has all its bytes");
    const size_t blocks = check_buffer(buffer);
    check_what_is_left(name, world, result, fuzz::run::allocations() - before - blocks);
    return 0;
}
