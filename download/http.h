// SPDX-License-Identifier: GPL-2.0-or-later
//
// HTTP and HTTPS, through the library in httpc/: one GET, redirects followed, then the body as far
// as its announced length.
//
// The last block is asked for with the devices' own arithmetic, which takes the position in the
// block off twice: a last block that arrives in pieces is asked for too little and the download
// fails. Built with UPGRADE_HTTP_WHOLE_ASKS, plain HTTP waits until such an ask can be met whole.
// docs/package-server.md says what a server does to stay clear of it.
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
