// SPDX-License-Identifier: GPL-2.0-or-later
#include "platform/diagnostic.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

constexpr char unit_names[diagnostic_unit_count][12] = {
    "cprotocol.c", "ftp.c", "http-priv.c", "httpc.c", "sslcli.c", "tftp.c",
};

} // namespace

const char *diagnostic_unit_name(diagnostic_unit unit)
{
    return unit_names[unit];
}

void diagnose(diagnostic_place place, const char *format, ...)
{
    const int error = errno;
    fprintf(stderr, "%s:%s:%d: ", diagnostic_unit_name(place.unit), place.function, place.number);
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    errno = error;
}

void diagnose_recv(diagnostic_place place)
{
    const int error = errno;
    fprintf(stderr, "%s:%s:line %d:recv error:%s\n", diagnostic_unit_name(place.unit),
            place.function, place.number, strerror(error));
    errno = error;
}
