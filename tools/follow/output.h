// SPDX-License-Identifier: GPL-2.0-or-later
//
// A descriptor that may not be read at the other end, written to without ever waiting for it.
#pragma once

#include <array>
#include <cstddef>

#include "tools/follow/json.h"

namespace follow {

struct output {
    int fd;
    bool is_socket;
    bool failed; ///< nothing more is written; `error` has errno
    int error;
    size_t size; ///< bytes of `data`
    size_t sent; ///< of them written
    std::array<char, 65536> data;
};

/// Writes to what `fd` is, which stays the caller's. Its file status flags stay as they are, since
/// other programs may share them: the terminal or pipe is opened a second time.
void output_start(output *out, int fd);

/// True when `size` bytes more find room.
bool output_has_room(const output *out, size_t size);

/// Adds text for which there is room.
void output_add(output *out, const text_buffer *text);

/// Writes what can be written at once, or with `wait_ms` within that time; -1 waits for ever.
void output_flush(output *out, int wait_ms);

/// True while something is left to be written.
bool output_pending(const output *out);

} // namespace follow
