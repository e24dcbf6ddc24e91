// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/cprotocol.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <unistd.h>

#include "httpc/http-priv.h"
#include "httpc/sslcli.h"
#include "platform/diagnostic.h"
#include "platform/number.h"
#include "platform/text.h"

namespace {

constexpr diagnostic_unit unit = diagnostic_cprotocol;

static_assert(sizeof(httpc_response::buffer) == httpc_refill_size + 2);

void flush_trace(httpc_response *response)
{
    fwrite(response->trace, 1, static_cast<size_t>(response->trace_size), stderr);
    response->trace_size = 0;
}

/// Traces a byte of the head. The lines are written together, once the head's line or what was
/// received of it ends: one by one, those of a long head take longer than a package.
void trace_byte(httpc_response *response, int byte, const char *function, int line)
{
    constexpr int longest = 64; // bytes of a line of the trace, and more
    const int room = static_cast<int>(sizeof(response->trace)) - response->trace_size;
    response->trace_size +=
        snprintf(response->trace + response->trace_size, static_cast<size_t>(room),
                 "%s:%d: %c-%d\n", function, line, byte, byte);
    if (byte == '\n' || response->available == 0 || room < 2 * longest)
        flush_trace(response);
}

/// The text behind the colon at `colon` and the blank that follows it; empty when there is less.
const char *behind_colon(const char *colon)
{
    return colon[1] == '\0' ? colon + 1 : colon + 2;
}

/// Whether `line` begins with `prefix` in any case.
bool begins(const char *line, const char *prefix)
{
    return strncasecmp(line, prefix, strlen(prefix)) == 0;
}

/// Takes "HTTP/1.0 200 OK" apart; 0, or -1 when it is no status line.
int parse_status_line(httpc_client *client, const char *line)
{
    if (!begins(line, "HTTP/"))
        return -1;
    const char *code = strchr(line, ' ');
    const char *reason = code == nullptr ? nullptr : strchr(code + 1, ' ');
    if (reason == nullptr)
        return -1;
    client->response.status = number_from_text(code + 1, 10, nullptr);
    safe_strncpy(client->response.reason, reason + 1, sizeof(client->response.reason));
    return 0;
}

/// Adds the "a=1; b=2" of a cookie line to the headers.
void parse_cookie(httpc_client *client, char *line)
{
    char *pair = strchr(line, ':') + 1;
    while (*pair != '\0') { // each turn consumes a pair
        char *equals = strchr(pair, '=');
        if (equals == nullptr)
            return;
        *equals = '\0';
        char *value = equals + 1;
        char *end = value + strcspn(value, ";");
        char *next = *end == '\0' ? end : end + 1;
        *end = '\0';
        _httpc_add_var(&client->headers, pair, value);
        pair = next;
    }
}

void parse_header_line(httpc_client *client, char *line)
{
    const bool keep = client->response.keep_headers != 0;
    char *colon = strchr(line, ':');
    if (colon == nullptr)
        return;
    if (keep && begins(line, "Cookie:")) {
        parse_cookie(client, line);
    } else if (begins(line, "Content-Type: ")) {
        safe_strncpy(client->response.content_type, behind_colon(colon),
                     sizeof(client->response.content_type));
    } else if (begins(line, "Content-Length: ")) { // with its blank: "Content-Length:5" is none
        client->content_length = number_from_text(behind_colon(colon), 10, nullptr);
    } else if (keep) {
        *colon = '\0';
        _httpc_add_var(&client->headers, line, behind_colon(colon));
    }
}

} // namespace

int _httpc_net_read(httpc_client *client, void *buffer, int length)
{
    if (!_http_wait_readable(client->socket, httpc_response_wait_seconds, diagnostic_here(unit)))
        return 0;
    ssize_t result = 0;
    if (client->tls != nullptr) {
        result = client->tls->ops->read(client->tls, buffer, length);
        fprintf(stderr, "len: %d, rlen=%d\n", length, static_cast<int>(result));
    } else {
        result = read(client->socket, buffer, static_cast<size_t>(length));
    }
    return result < 0 ? -1 : static_cast<int>(result);
}

int _httpc_recv(httpc_client *client)
{
    httpc_response *response = &client->response;
    // Also where the refill falls short: what is left must lie within the buffer.
    response->read_position = 0;
    int filled = 0;
    while (filled < httpc_refill_size) {
        const int count =
            _httpc_net_read(client, response->buffer + filled, httpc_refill_size + 1 - filled);
        if (count < 0) {
            diagnose_recv(diagnostic_here(unit));
            return -1;
        }
        if (count == 0) {
            response->end_of_data = 1;
            response->available = filled;
            return 0;
        }
        filled += count;
    }
    response->available = filled;
    return 1;
}

int _httpc_read_char(httpc_client *client, char *out)
{
    httpc_response *response = &client->response;
    if (response->head_size >= httpc_head_limit) {
        flush_trace(response);
        diagnose_recv(diagnostic_here(unit));
        return -1;
    }
    if (response->available <= 0) {
        // Kept: a head needs full refills, even where the last one brought the rest of it.
        if (_httpc_recv(client) != 1) {
            diagnose_recv(diagnostic_here(unit));
            return -1;
        }
        response->buffer[response->available] = '\0';
    }
    *out = response->buffer[response->read_position];
    response->read_position++;
    response->available--;
    response->head_size++;
    trace_byte(response, static_cast<uint8_t>(*out), __func__, __LINE__);
    return 1;
}

int _httpc_read_line(httpc_client *client, char *buffer, int max)
{
    int stored = 0;
    int result = 1;
    while (stored < max) { // the limit on the head bounds the carriage returns
        char byte = '\0';
        if (_httpc_read_char(client, &byte) < 0) {
            diagnose_recv(diagnostic_here(unit));
            result = -1;
            break;
        }
        if (byte == '\n')
            break;
        if (byte != '\r')
            buffer[stored++] = byte;
    }
    buffer[stored] = '\0';
    flush_trace(&client->response);
    return result;
}

int _httpc_parse_response(httpc_client *client)
{
    client->response.head_size = 0;
    for (bool first = true;; first = false) { // ends with the limit on the head at the latest
        char line[httpc_line_size + 1];
        const int result = _httpc_read_line(client, line, httpc_line_size);
        fprintf(stderr, "buf: %s\n", line);
        if (result < 0 || (first && parse_status_line(client, line) < 0)) {
            diagnose_recv(diagnostic_here(unit));
            return -1;
        }
        if (first)
            continue;
        if (line[0] == '\0')
            return client->response.end_of_data == 0 ? 1 : 0;
        parse_header_line(client, line);
    }
}
