// SPDX-License-Identifier: GPL-2.0-or-later
#include "platform/diagnostic.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

void diagnose(const diagnostic_place &place, const char *format, ...)
{
    const int error = errno;
    fprintf(stderr, "%s:%s:%d: ", place.unit, place.function, place.number);
    va_list arguments;
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    errno = error;
}

void diagnose_recv(const diagnostic_place &place)
{
    const int error = errno;
    fprintf(stderr, "%s:%s:line %d:recv error:%s\n", place.unit, place.function, place.number,
            strerror(error));
    errno = error;
}
