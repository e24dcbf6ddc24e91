// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "download/downloader.h"

/// Not supported yet: says so in one line on standard error and returns null.
downloader *ftp_downloader_open(char *url);
