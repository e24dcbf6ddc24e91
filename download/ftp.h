// SPDX-License-Identifier: GPL-2.0-or-later
//
// FTP (RFC 959): one file by passive mode and image type, its size by SIZE (RFC 3659).
//
// The dialogue forgives: unexpected replies are printed and the next command is sent all the same,
// so that a server with odd replies still serves. What counts is the bytes: SIZE says how many, and
// without a usable answer to it nothing is fetched. docs/ftp-server.md says what a server must do.
#pragma once

#include "download/downloader.h"

/// A downloader for ftp://[USER[:PASSWORD]@]HOST[:PORT]/PATH (download/ftp_url.h), anonymous when
/// the URL names no user. Null with one line on standard error when the URL is not FTP's or, but
/// for its parts without a line, when there is no memory. The host is looked up by `download`.
/// `url` must be writable and outlive the downloader: it is taken apart in place, and `download`
/// cuts the user in it at its first ":".
///
/// `length` is the size that the server told, 0 until then.
///
/// `download` returns -1 when
///  - the server did not greet with 220 or its SIZE is no number; the transfer was tried all the
///    same;
///  - the control connection ended, went silent for 300 s or sent 1,000 reads without a complete
///    reply before the last byte was there;
///  - a command would be longer than 1023 bytes;
///  - `buffer` is full, also because the data ended too early: every pass commits a block then;
///  - `callback` asked to stop. It is called about once a block.
/// At the last four it returns at once and leaves its sockets open; the process is about to end.
///
/// Else it returns 0: also after a refused login or transfer of which SIZE said nothing, so that
/// the package check is what fails then.
downloader *ftp_downloader_open(char *url);
