// SPDX-License-Identifier: GPL-2.0-or-later
//
// Reads and writes that a signal does not cut short.
#pragma once

#include <cstddef>
#include <sys/types.h>

/// One `read`, repeated while it fails with EINTR; its result.
ssize_t safe_read(int fd, void *buffer, size_t size);

/// One `write`, repeated while it fails with EINTR; its result.
ssize_t safe_write(int fd, const void *buffer, size_t size);

/// Reads until `size` bytes are there. At the end of the file the count so far; on an error the
/// error result, and the count is lost.
ssize_t full_read(int fd, void *buffer, size_t size);

/// Writes all `size` bytes and returns `size`; a write of 0 bytes is simply repeated. On an error
/// the error result. 0 for `size` 0.
ssize_t full_write(int fd, const void *buffer, size_t size);
