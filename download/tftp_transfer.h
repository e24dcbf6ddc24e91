// SPDX-License-Identifier: GPL-2.0-or-later
//
// One transfer of the Trivial File Transfer Protocol (RFC 1350): a request, then each block of data
// acknowledged by the packet that asks for the next. Every packet is sent again while no answer
// comes, five times 5 seconds at most, and 10,000 answers that bring nothing end the transfer.
#pragma once

#include <cstdint>
#include <netdb.h>

#include "download/downloader.h"
#include "download/iobuf.h"

constexpr uint16_t tftp_port = 69;

enum tftp_command {
    tftp_cmd_get = 1,
    tftp_cmd_put = 2, // known to the engine's callers, never asked for here
};

/// Fetches `remote_file` from port `port` of `host` into `buffer`, in blocks of `block_size` bytes
/// (a server sends 512 unless asked otherwise). 0, -1 on failure, 1 without a socket; what is wrong
/// is said on standard error. Only gets are asked for, and the callback is never called.
int do_tftp(tftp_command command, const hostent *host, const char *remote_file, iobuf *buffer,
            progress_callback callback, void *argument, uint16_t port, int block_size);
