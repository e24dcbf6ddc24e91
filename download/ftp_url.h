// SPDX-License-Identifier: GPL-2.0-or-later
//
// FTP URLs, taken apart in place: ftp://[USER[:PASSWORD]@]HOST[:PORT]/PATH
//
// Nothing is copied and nothing is unescaped ("%40" stays as it is written). Zeros are written over
// the separators, so that whoever prints the URL later sees only its beginning up to the user or,
// without a user, the host.
#pragma once

#include <netinet/in.h>

struct ftp_url {
    char *host;     ///< points into the URL; may be empty
    in_port_t port; ///< network byte order; 21 when the URL names none
    char *path;     ///< text behind the first "/", without it; null when the URL has none
    int is_ftp;     ///< 1: the transfer ends with FTP's closing dialogue
    char *user;     ///< "NAME:PASSWORD" or "NAME" as written, up to the last "@"; null without "@"
};

/// Fills `record` from `url`, which must be writable and outlive the record. The port is read as a
/// decimal number that saturates at 32 bits, of which the low 16 are kept; without digits it is 0.
/// 0, or -1 with one line on standard error when the URL does not begin with "ftp://" in lower
/// case; both are unchanged then.
int parse_url(char *url, ftp_url *record);
