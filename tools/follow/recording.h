// SPDX-License-Identifier: GPL-2.0-or-later
//
// Datagrams with their times as lines of JSON; docs/status-datagrams.md describes them.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "tools/follow/json.h"
#include "tools/follow/receiver.h"
#include "tools/follow/tracker.h"

namespace follow {

/// A recording that is being written. Zero-filled it takes nothing.
struct recording {
    FILE *file;
    bool begun;
    int64_t start_ms; ///< of the first datagram
};

/// Opens `path` anew. False with errno.
bool recording_create(recording *into, const char *path);

/// Adds a datagram of `size` bytes, of which `data` holds the first datagram_room. The first one
/// begins the times. False with errno: nothing more can be written.
bool recording_add(recording *into, const char *data, size_t size, moment now);

/// Writes what was added. False with errno.
bool recording_flush(recording *into);

/// Adds how it ended, one of the outcomes' names or "stopped", writes all and closes. False with
/// errno.
bool recording_close(recording *into, const char *end, moment now);

/// A recording that is being read.
struct playback {
    FILE *file;
    const char *path;
    int64_t clock_ms; ///< time of day of its beginning
    int64_t at_ms;    ///< of the present record, behind the beginning
    std::string_view datagram;
    unsigned line_number;
    std::array<char, 2048> line; ///< a datagram in escapes of six characters, and the rest
};

enum playback_result { playback_datagram, playback_end, playback_error };

/// Opens `path`, which outlives the playback, and reads the first line. False with one line without
/// a newline in `error`.
bool playback_open(playback *play, const char *path, text_buffer *error);

/// The next record: a datagram, which stands until the next call, the end (`at_ms` says when), or a
/// fault with one line in `error`. A recording without its last line ends where it ends: so does
/// one whose writer was reset with its device.
playback_result playback_next(playback *play, text_buffer *error);

} // namespace follow
