// SPDX-License-Identifier: GPL-2.0-or-later
//
// TFTP (RFC 1350): read requests in "octet" mode with blocks of 512 bytes, always from port 69.
//
// One packet is under way at a time. It is sent again after five seconds without an answer, and the
// fifth such silence ends the transfer; a packet from elsewhere starts that count anew, but 10,000
// answers without a new block end it as well. TFTP does not tell a size, and this downloader never
// calls its callback, so a TFTP download is silent: no stage, no percentage, no kick of the
// watchdog.
#pragma once

#include "download/downloader.h"

/// A downloader for tftp://HOST/FILE, or null without a "/" behind the host or without memory (each
/// with one line on standard error). Only the exact prefix "tftp://" is skipped; anything else is
/// taken as HOST/FILE as it stands, so that TFTP://h/f looks up the host "TFTP:". The host is
/// looked up here and judged when the download starts. `url` is copied, not changed.
///
/// `download` returns 0 when the last block has come, -1 on failure, and 1, which the caller takes
/// for a success, when no socket can be had; the package check then fails on the length.
downloader *tftp_downloader_open(char *url);
