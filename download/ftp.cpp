// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/ftp.h"

#include <cstdio>

downloader *ftp_downloader_open(char *url)
{
    fprintf(stderr, "FTP downloads are not supported yet: %s\n", url);
    return nullptr;
}
