// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/http.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "httpc/httpc.h"

namespace {

constexpr int send_tries = 6;
constexpr int status_ok = 200;
constexpr int empty_read_limit = 2; // in a row: the connection has ended

struct http_downloader {
    downloader base;
    httpc_client *client;
};
static_assert(offsetof(http_downloader, base) == 0);

httpc_client *client_of(downloader *self)
{
    return reinterpret_cast<http_downloader *>(self)->client;
}

/// How much to ask for at `position` of the block being filled.
int next_ask(const iobuf *buffer, int length, int position)
{
    // Kept: `total` has the position in it already, so in the last block it is taken off twice.
    // That shows nowhere, since an ask that reaches into the last block's worth of bytes is filled.
    if (buffer->total + buffer->block_size > length)
        return length - buffer->total - position;
    return buffer->block_size - position;
}

/// Fills the next block and commits it: 0, 1 when the callback stops it, -1.
int fetch_block(httpc_client *client, iobuf *buffer, progress_callback callback, void *argument)
{
    const int length = httpcGetContentLength(client);
    uint8_t *block = iobuf_request(buffer);
    if (block == nullptr)
        return -1;
    int position = 0;
    int empty_reads = 0;
    int left = 0; // of an ask that has to be filled before the next one
    while (buffer->total < length && position < buffer->block_size) {
        const int ask = left > 0 ? left : next_ask(buffer, length, position);
        // Behind a short read in the last block's worth of bytes the next ask would come out wrong.
        const bool fill = left > 0 || buffer->total + ask > length - buffer->block_size;
        const int count = httpcReadResponse(client, block + position, ask);
        empty_reads = count == 0 ? empty_reads + 1 : 0;
        if (count < 0 || empty_reads == empty_read_limit)
            return -1;
        left = fill ? ask - count : 0;
        position += count;
        buffer->total += count;
        if (callback != nullptr && callback(argument, count) <= 0)
            return 1;
    }
    return iobuf_commit(buffer);
}

int send_request(httpc_client *client)
{
    int result = -1;
    for (int turn = 0; turn < send_tries && result < 0; turn++)
        result = httpcSendRequest(client);
    return result;
}

int http_downloader_length(downloader *self)
{
    return httpcGetContentLength(client_of(self));
}

int http_downloader_download(downloader *self, iobuf *buffer, progress_callback callback,
                             void *argument)
{
    httpc_client *client = client_of(self);
    if (send_request(client) < 0 || httpcGetResponse(client, 1) != status_ok)
        return -1;
    int result = 0;
    while (result == 0 && buffer->total < httpcGetContentLength(client))
        result = fetch_block(client, buffer, callback, argument);
    return result;
}

int http_downloader_result(downloader * /*self*/)
{
    return 0;
}

const downloader_ops http_downloader_ops = {
    .length = http_downloader_length,
    .download = http_downloader_download,
    .result = http_downloader_result,
};

} // namespace

downloader *http_downloader_open(char *url)
{
    char scheme[8] = {};
    char host[256] = {};
    char path[128] = {};
    uint16_t port = 0;
    if (httpcParseURL(url, scheme, host, &port, path) < 0) {
        fprintf(stderr, "fget: invalid url: %s\n", url);
        return nullptr;
    }
    httpc_client *client = httpcOpenClient(host, port, strcmp(scheme, "HTTPS") == 0 ? 1 : 0);
    if (client == nullptr)
        return nullptr;
    httpcInitRequest(client, httpc_method_get, path);
    httpcSetContentType(client, "text/html");
    auto *self = static_cast<http_downloader *>(malloc(sizeof(http_downloader)));
    if (self == nullptr)
        return nullptr;
    self->base.ops = &http_downloader_ops;
    self->client = client;
    return &self->base;
}
