// SPDX-License-Identifier: GPL-2.0-or-later
//
// Text into fields of a fixed size.
#pragma once

#include <cstddef>
#include <cstring>

/// Copies at most size - 1 characters of `source`, fills the rest of the `size` bytes (above 0) at
/// `destination` with zeros, and returns `destination`: it is always terminated.
inline char *safe_strncpy(char *destination, const char *source, size_t size)
{
    const size_t length = strnlen(source, size - 1);
    memcpy(destination, source, length);
    memset(destination + length, 0, size - length);
    return destination;
}
