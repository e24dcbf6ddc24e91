// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/downloaders.h"

#include <cstdio>
#include <cstring>
#include <strings.h>

#include "download/ftp.h"
#include "download/http.h"
#include "download/tftp.h"

downloader *downloader_open(char *url)
{
    fprintf(stderr, "url = %s\n", url);
    for (const downloader_scheme *row = downloaders; row->open != nullptr; row++) {
        if (strncasecmp(url, row->word, strlen(row->word)) == 0)
            return row->open(url);
    }
    return http_downloader_open(url);
}

const downloader_scheme downloaders[] = {
    {.word = "http", .open = http_downloader_open},
    {.word = "tftp", .open = tftp_downloader_open},
    {.word = "ftp", .open = ftp_downloader_open},
    {.word = nullptr, .open = nullptr},
};
