// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/ftp_url.h"

#include <cstdio>
#include <cstring>

#include "platform/number.h"

namespace {

constexpr char prefix[] = "ftp://";
constexpr in_port_t default_port = 21;

/// Ends the text at `separator` and returns what stands behind it; null for a null separator.
char *cut(char *separator)
{
    if (separator == nullptr)
        return nullptr;
    *separator = '\0';
    return separator + 1;
}

} // namespace

int parse_url(char *url, ftp_url *record)
{
    if (strncmp(url, prefix, strlen(prefix)) != 0) {
        fprintf(stderr, "not a ftp url: %s\n", url);
        return -1;
    }
    record->port = htons(default_port);
    record->host = url + strlen(prefix);
    record->is_ftp = 1;
    record->path = cut(strchr(record->host, '/'));
    record->user = nullptr;
    // The last "@": a password may hold others.
    if (char *host = cut(strrchr(record->host, '@')); host != nullptr) {
        record->user = record->host;
        record->host = host;
    }
    if (const char *port = cut(strchr(record->host, ':')); port != nullptr)
        record->port = htons(static_cast<in_port_t>(number_from_text(port, 10, nullptr)));
    return 0;
}
