// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/ftp.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <unistd.h>

#include "download/ftp_control.h"
#include "download/ftp_url.h"
#include "download/safe_io.h"
#include "platform/diagnostic.h"
#include "platform/number.h"

namespace {

enum ftp_reply : int {
    reply_file_status_okay = 150,
    reply_file_size = 213,
    reply_ready = 220,
    reply_transfer_complete = 226,
    reply_entering_passive = 227,
    reply_logged_in = 230,
    reply_need_password = 331,
};

// What the messages of this unit begin with; see platform/diagnostic.h.
constexpr diagnostic_place in_download(int number)
{
    return {.unit = diagnostic_ftp, .number = number, .function = "ftp_downloader_download"};
}
constexpr diagnostic_place at_greeting = in_download(255);
constexpr diagnostic_place at_login = in_download(274);
constexpr diagnostic_place at_size = in_download(288);
constexpr diagnostic_place at_passive = in_download(298);
constexpr diagnostic_place at_retrieve = in_download(310);
constexpr diagnostic_place at_end = in_download(362);
constexpr diagnostic_place at_open_memory = {diagnostic_ftp, 391, "ftp_downloader_open"};

struct ftp_downloader {
    downloader base;
    ftp_url url;
    char *host;     ///< copies: printing or changing the URL later does not reach them
    in_port_t port; ///< network byte order
    int size;       ///< 0 until the server told it
    int control_socket;
    int data_socket;
};

/// One download under way.
struct transfer {
    ftp_downloader *ftp;
    sockaddr_in server;
    int result;      ///< -1 as soon as a fault is found that does not end the dialogue
    bool data_ended; ///< no read after the data connection ended, failed or was silent
    char reply[ftp_reply_size];
};

static_assert(offsetof(ftp_downloader, base) == 0);

ftp_downloader *from_base(downloader *self)
{
    return reinterpret_cast<ftp_downloader *>(self);
}

int exchange(transfer *state, const char *command, const char *argument)
{
    return ftpcmd(command, argument, state->ftp->control_socket, state->reply);
}

const char *reply_text(const transfer *state)
{
    return state->reply + ftp_reply_text;
}

/// Judged by nobody: without a connection reading the greeting fails.
void connect_control(transfer *state)
{
    ftp_downloader *ftp = state->ftp;
    const hostent *entry = gethostbyname(ftp->host);
    if (entry == nullptr || entry->h_addrtype != AF_INET) {
        diagnose(at_connect, "connect error: %s", hstrerror(h_errno));
        ftp->control_socket = -1;
        return;
    }
    state->server.sin_family = AF_INET;
    state->server.sin_port = ftp->port;
    memcpy(&state->server.sin_addr, entry->h_addr_list[0], sizeof(state->server.sin_addr));
    ftp->control_socket = open_socket(&state->server);
}

// The steps of the dialogue, in order. Each returns 0, or -1 to end the download at once; a reply
// that is merely not the expected one is printed and does not end it.

int read_greeting(transfer *state)
{
    const int code = exchange(state, nullptr, nullptr);
    if (code < 0)
        return -1;
    if (code != reply_ready) {
        diagnose(at_greeting, "%s", reply_text(state));
        state->result = -1;
    }
    return 0;
}

int log_in(transfer *state)
{
    char *user = state->ftp->url.user;
    char *password = strchr(user, ':');
    if (password != nullptr)
        *password++ = '\0';
    int code = exchange(state, "USER ", user);
    if (code == reply_need_password)
        code = exchange(state, "PASS ", password);
    if (code < 0)
        return -1;
    if (code != reply_logged_in)
        diagnose(at_login, "ftp login: %s\n", reply_text(state));
    return 0;
}

int ask_size(transfer *state)
{
    const int code = exchange(state, "SIZE ", state->ftp->url.path);
    if (code < 0)
        return -1;
    if (code != reply_file_size)
        return 0;
    char *end = nullptr;
    state->ftp->size = number_from_text(reply_text(state), 0, &end);
    if (end == reply_text(state)) {
        diagnose(at_size, "SIZE value is garbage\n");
        state->result = -1;
    }
    return 0;
}

/// The number behind the last comma of `text`, which is cut there; 0 without a comma or a number.
int32_t cut_last_number(char *text)
{
    char *comma = strrchr(text, ',');
    if (comma == nullptr)
        return 0;
    *comma = '\0';
    return number_from_text(comma + 1, 10, nullptr);
}

/// Always to the server itself, whatever address its reply names: a reply that names another host
/// comes from a server behind address translation, or from one that wants us to connect elsewhere.
int connect_data(transfer *state)
{
    const int code = exchange(state, "PASV", nullptr);
    if (code < 0)
        return -1;
    if (code != reply_entering_passive)
        diagnose(at_passive, "PASV: %s\n", reply_text(state));
    const int64_t low = cut_last_number(state->reply);
    const int64_t high = cut_last_number(state->reply);
    state->server.sin_port = htons(static_cast<in_port_t>(low + 256 * high));
    state->ftp->data_socket = open_socket(&state->server);
    return 0;
}

int start_transfer(transfer *state)
{
    const int code = exchange(state, "RETR ", state->ftp->url.path);
    if (code < 0)
        return -1;
    if (code > reply_file_status_okay)
        diagnose(at_retrieve, "RETR: %s\n", reply_text(state));
    fprintf(stderr, "ftp->total = %d\n", state->ftp->size);
    return 0;
}

/// Up to `room` bytes; fewer only when the data has ended.
int read_data(transfer *state, uint8_t *destination, int room)
{
    int count = 0;
    while (count < room && !state->data_ended) {
        const ssize_t result = safe_read(state->ftp->data_socket, destination + count,
                                         static_cast<size_t>(room - count));
        if (result > 0)
            count += static_cast<int>(result);
        else
            state->data_ended = true;
    }
    return count;
}

/// Each pass commits its block, also an empty one: data that ends early uses up the blocks.
int receive(transfer *state, iobuf *buffer, progress_callback callback, void *argument)
{
    const int size = state->ftp->size;
    while (buffer->total < size) {
        uint8_t *block = iobuf_request(buffer);
        if (block == nullptr)
            return -1;
        int filled = 0;
        while (filled < buffer->block_size && buffer->total < size) {
            // The whole room is asked for, not what is missing of the size: what a server sends
            // beyond it is stored as far as the block goes.
            const int count = read_data(state, block + filled, buffer->block_size - filled);
            if (count == 0)
                break;
            filled += count;
            buffer->total += count;
            if (callback != nullptr && callback(argument, count) <= 0)
                return -1;
        }
        iobuf_commit(buffer);
    }
    return 0;
}

/// Judges nothing any more: the bytes are there, and nobody feeds the watchdog meanwhile.
void close_dialogue(transfer *state)
{
    ftp_downloader *ftp = state->ftp;
    close(ftp->data_socket);
    if (ftp_closing_reply(nullptr, ftp->control_socket, state->reply) != reply_transfer_complete)
        diagnose(at_end, "ftp error\n");
    ftp_closing_reply("QUIT", ftp->control_socket, state->reply);
    close(ftp->control_socket);
}

int ftp_length(downloader *self)
{
    return from_base(self)->size;
}

int ftp_download(downloader *self, iobuf *buffer, progress_callback callback, void *argument)
{
    transfer state = {};
    state.ftp = from_base(self);
    connect_control(&state);
    if (read_greeting(&state) < 0 || log_in(&state) < 0 ||
        exchange(&state, "TYPE I", nullptr) < 0 || ask_size(&state) < 0 ||
        connect_data(&state) < 0 || start_transfer(&state) < 0 ||
        receive(&state, buffer, callback, argument) < 0)
        return -1;
    fprintf(stderr, "iobuf->total = %d\n", buffer->total);
    if (state.ftp->url.is_ftp != 0)
        close_dialogue(&state);
    return state.result;
}

int ftp_result(downloader * /*self*/)
{
    return 0;
}

constexpr downloader_ops ftp_ops = {
    .length = ftp_length,
    .download = ftp_download,
    .result = ftp_result,
};

} // namespace

downloader *ftp_downloader_open(char *url)
{
    auto *ftp = static_cast<ftp_downloader *>(calloc(1, sizeof(ftp_downloader)));
    if (ftp == nullptr) {
        diagnose(at_open_memory, "malloc: %s\n", strerror(errno));
        return nullptr;
    }
    if (parse_url(url, &ftp->url) != 0) {
        free(ftp);
        return nullptr;
    }
    ftp->host = strdup(ftp->url.host);
    ftp->port = ftp->url.port;
    char *anonymous = ftp->url.user == nullptr ? strdup("anonymous:getfile@") : nullptr;
    if (anonymous != nullptr)
        ftp->url.user = anonymous;
    if (ftp->host == nullptr || ftp->url.user == nullptr) {
        free(anonymous);
        free(ftp->host);
        free(ftp);
        return nullptr;
    }
    ftp->base.ops = &ftp_ops;
    return &ftp->base;
}
