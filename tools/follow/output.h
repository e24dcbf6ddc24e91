// SPDX-License-Identifier: GPL-2.0-or-later
//
// Where the follower writes: a descriptor that may not be read at the other end, without ever
// waiting for it, and a file that is always whole.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace follow {

struct output {
    int fd;
    bool is_socket;
    int error;   ///< errno of what failed: nothing more is written; 0: nothing did
    size_t size; ///< bytes of `data`
    size_t sent; ///< of them written
    std::array<char, 65536> data;
};

/// Writes to what `fd` is, which stays the caller's. Its file status flags stay as they are, since
/// other programs may share them: the terminal or pipe is opened a second time.
void output_start(output *out, int fd);

/// Adds `text`, after writing what can be written at once where there is no room. False when there
/// is none even so: nothing was added.
bool output_add(output *out, std::string_view text);

/// Writes what can be written at once, or with `wait_ms` within that time; -1 waits for ever.
void output_flush(output *out, int wait_ms);

/// True while something is left to be written.
bool output_pending(const output *out);

/// Replaces `path` by `text`: written beside it as `path`.new, then renamed. With `lasting` the
/// content is on the disk before. False with errno; the old file then stands as it was.
bool replace_file(const char *path, std::string_view text, bool lasting);

} // namespace follow
