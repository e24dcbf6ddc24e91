// SPDX-License-Identifier: GPL-2.0-or-later
//
// The HTTP client's record. Data only: the operations are in httpc.h.
//
// It has three parts: what lives as long as the client, what `httpcInitRequest` clears
// (`request`), and what a followed redirect clears (`response`). Fixed-size texts are always
// terminated; what does not fit is cut.
#pragma once

#include <cstdint>

#include "httpc/list.h"

struct cyassl_client;

constexpr int httpc_host_size = 128;        ///< also the path and the longest URL, terminated
constexpr int httpc_encoded_size = 256;     ///< encoded variables, terminated
constexpr int httpc_line_size = 512;        ///< a line that is sent or received, without its end
constexpr int httpc_refill_size = 1024;     ///< a refill is complete from this many bytes on
constexpr int httpc_head_limit = 64 * 1024; ///< a longer response head is refused
constexpr int httpc_response_wait_seconds = 300;

struct httpc_request {
    int32_t method; ///< 1 GET, 2 POST
    char host[httpc_host_size];
    char path[httpc_host_size]; ///< may carry a query ("?")
    char error_text[128];       ///< `strerror` of the last failure
    char content_type[64];      ///< sent when not empty
    char encoded_variables[httpc_encoded_size];
    uint16_t port;
};

struct httpc_response {
    int32_t status;
    int32_t keep_headers;  ///< 0: only the recognised headers are looked at
    int32_t read_position; ///< index of the next unread byte in `buffer`
    int32_t available;     ///< unread bytes in `buffer`
    int32_t parsed;        ///< 1 once a response's head was parsed
    int32_t end_of_data;   ///< 1 once a refill met the end of the connection
    char reason[128];
    char content_type[64];
    char buffer[httpc_refill_size + 2]; ///< a refill takes up to one byte more; then the terminator
    int32_t head_size;                  ///< bytes of the head so far, see `httpc_head_limit`
    int32_t trace_size;                 ///< bytes in `trace`
    char trace[1024];                   ///< what the head's trace has yet to write
};

struct httpc_client {
    int32_t socket;                  ///< connected socket, -1 when there is none
    int32_t content_length;          ///< of the body last sent, then of the response
    int32_t redirect;                ///< 0 after a redirect; nothing reads it
    int32_t connect_timeout_seconds; ///< 0: a blocking connect; no operation sets it
    char host[httpc_host_size];
    uint16_t port;
    httpc_list variables;
    httpc_list headers; ///< those to send; after a response, the response's
    httpc_request request;
    httpc_response response;
    cyassl_client *tls;     ///< null for plain HTTP
    int32_t unready_writes; ///< of this request, the last ones in a row that had to be given up
};
