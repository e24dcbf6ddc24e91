// SPDX-License-Identifier: GPL-2.0-or-later
//
// The scheme table: the one unit that knows every protocol.
#pragma once

#include "download/downloader.h"

/// One protocol: the word that a URL begins with, compared without regard to case and with nothing
/// required behind it ("https" is taken by "http"), and its open function.
struct downloader_scheme {
    const char *word;
    downloader *(*open)(char *url);
};

/// http, tftp and ftp in this order, ended by a row whose open function is null.
extern const downloader_scheme downloaders[];

/// Opens `url` with the first row of `downloaders` that matches, with HTTP when none does. Says
/// "url = ..." on standard error first. Null when the protocol refuses the URL; the caller reports
/// it. `url` must be writable and outlive the downloader: FTP takes it apart in place.
downloader *downloader_open(char *url);
