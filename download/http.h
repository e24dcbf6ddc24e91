// SPDX-License-Identifier: GPL-2.0-or-later
//
// HTTP and HTTPS, through the library in httpc/: one GET, redirects followed, then the body as far
// as its announced length.
//
// The last block is asked for with the devices' own arithmetic, which takes the position in the
// block off twice. So an ask that reaches into the last block's worth of bytes is filled, however
// many reads that takes, before the next one is computed: none begins inside the last block.
#pragma once

#include "download/downloader.h"

/// A downloader for an http:// or https:// URL, not connected; null with "fget: invalid url: ..."
/// when the library cannot split `url` (128 characters or more), and null when it opens no client:
/// port 0, or TLS without a readable CA file. `url` is not changed.
///
/// `download` returns 0 when as many bytes as the response announced are stored (none when it
/// announced none), 1 when the callback stopped it, and -1 on failure: no connection after six
/// tries, a status other than 200, a full buffer, a failed read, a connection that ended early.
/// `length` tells the announced length from the head on.
downloader *http_downloader_open(char *url);
