// SPDX-License-Identifier: GPL-2.0-or-later
//
// Datagrams with their times as lines of JSON; docs/status-datagrams.md describes them.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "tools/follow/receiver.h"

namespace follow {

/// A recording that is being written. Zero-filled and with an `fd` of -1 it takes nothing.
struct recording {
    int fd;
    bool begun;
    int64_t start_ms; ///< of the first datagram
    size_t size;
    std::array<char, 16384> data;
};

/// Opens `path` anew. False with errno.
bool recording_create(recording *file, const char *path);

/// Adds a datagram of `size` bytes, of which `data` holds the first datagram_room. The first one
/// begins the times; `clock_ms` is its time of day. False with errno: nothing more can be written.
bool recording_add(recording *file, const char *data, size_t size, int64_t now_ms,
                   int64_t clock_ms);

/// Writes what was added. False with errno.
bool recording_flush(recording *file);

/// Adds how it ended, one of the outcomes' names or "stopped", writes all and closes. False with
/// errno.
bool recording_close(recording *file, const char *end, int64_t now_ms, int64_t clock_ms);

/// A recording that is being read.
struct playback {
    FILE *file;
    const char *path;
    unsigned line;
    int64_t clock_ms; ///< time of day of its beginning
    int64_t at_ms;    ///< of the present record, behind the beginning
    size_t size;
    std::array<char, datagram_room> data;
};

enum playback_result { playback_datagram, playback_end, playback_error };

/// Opens `path`, which outlives the playback, and reads the first line. False with one line without
/// a newline in `error`.
bool playback_open(playback *play, const char *path, char *error, size_t error_size);

/// The next record: a datagram in `data`, the end (`at_ms` says when), or a fault with one line in
/// `error`. A recording without its last line ends where it ends: so does one whose writer was
/// reset with its device.
playback_result playback_next(playback *play, char *error, size_t error_size);

} // namespace follow
