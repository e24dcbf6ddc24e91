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
    destination[size - 1] = '\0';
    return strncpy(destination, source, size - 1);
}
