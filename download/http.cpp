// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/http.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "httpc/httpc.h"
#include "httpc/httpc_client.h"

namespace {

#ifdef UPGRADE_HTTP_WHOLE_ASKS
constexpr bool whole_asks = true;
#else
constexpr bool whole_asks = false;
#endif

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
    if (buffer->total + buffer->block_size > length)
        return length - buffer->total - position;
    return buffer->block_size - position;
}

void set_low_water(int socket, int size)
{
    setsockopt(socket, SOL_SOCKET, SO_RCVLOWAT, &size, sizeof(size));
}

/// Waits until all of `ask` bytes are there or the connection has ended, for as long as each 300 s
/// bring something. False when nothing at all came.
bool await_whole(int socket, int ask)
{
    pollfd entry = {.fd = socket, .events = POLLIN, .revents = 0};
    int there = 0;
    int before = 0;
    int ready = 0;
    set_low_water(socket, ask);
    do { // each turn is a signal, or has brought a byte of `ask`
        before = there;
        ready = poll(&entry, 1, httpc_response_wait_seconds * 1000);
        if (ready == 0)
            ioctl(socket, FIONREAD, &there);
    } while ((ready < 0 && errno == EINTR) || (ready == 0 && there > before));
    set_low_water(socket, 1);
    return ready != 0 || there > 0;
}

/// One read of the body, as `httpcReadResponse`.
int read_body(httpc_client *client, const iobuf *buffer, int length, uint8_t *destination, int ask)
{
    // A short answer is harmless as long as it ends before the last block's worth of bytes: only
    // from there on the next ask comes out wrong. A TLS socket's bytes are not the body's.
    if (whole_asks && client->tls == nullptr && client->socket >= 0 && ask > 0 &&
        client->response.available == 0 && buffer->total + ask > length - buffer->block_size &&
        !await_whole(client->socket, ask))
        return -1;
    return httpcReadResponse(client, destination, ask);
}

/// Fills the next block and commits it: 0, 1 when the callback stops it, -1.
int fetch_block(httpc_client *client, iobuf *buffer, download_callback callback, void *argument)
{
    const int length = httpcGetContentLength(client);
    uint8_t *block = iobuf_request(buffer);
    if (block == nullptr)
        return -1;
    int position = 0;
    int empty_reads = 0;
    while (buffer->total < length && position < buffer->block_size) {
        const int ask = next_ask(buffer, length, position);
        const int count = read_body(client, buffer, length, block + position, ask);
        empty_reads = count == 0 ? empty_reads + 1 : 0;
        if (count < 0 || empty_reads == empty_read_limit)
            return -1;
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
    // Kept: a TLS client goes into every try with the object of the first, handshake and all.
    for (int turn = 0; turn < send_tries && result < 0; turn++)
        result = httpcSendRequest(client);
    return result;
}

int http_downloader_length(downloader *self)
{
    return httpcGetContentLength(client_of(self));
}

int http_downloader_download(downloader *self, iobuf *buffer, download_callback callback,
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
