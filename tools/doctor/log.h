// SPDX-License-Identifier: GPL-2.0-or-later
//
// What a log tells: the runs in it, how far each came and what it said.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <istream>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/doctor/matcher.h"

namespace doctor {

/// How far a run came. A log without its beginning begins where its first message is.
enum class phase { start, downloading, downloaded, checking, writing, verifying, done };

enum class outcome {
    none,
    not_started,
    invalid_url,
    download_failed,
    invalid_package,
    upgrade_failed,
    done
};

/// One message of the table as often as a run said it.
struct finding {
    const message_row *row;
    uint64_t count;
    uint64_t first_line; ///< of the file, from 1
    uint64_t last_line;
    std::string text;                   ///< of the first one, cut where it is very long
    std::vector<std::string> arguments; ///< the same
    bool settled;                       ///< data came after it, so it explains no later failure
};

/// What a run says of a partition that it opened while it wrote or read back.
struct partition_log {
    bool whole = false;                 ///< the writing went on to the next thing
    uint64_t retries = 0;               ///< writes that failed
    std::vector<std::string> different; ///< blocks that read back different, the first few
    std::vector<std::string> unreadable;
    bool trailer_failed = false;
};

struct run_log {
    uint64_t first_line = 0;
    uint64_t last_line = 0;
    bool complete = false; ///< the run's beginning is in the log
    std::string url;       ///< empty when the log does not have it
    phase reached = phase::start;
    outcome end = outcome::none;
    std::optional<int64_t> percent;     ///< of the stage it reached
    std::optional<int64_t> brought;     ///< bytes, as TFTP and FTP tell
    std::optional<int64_t> exit_status; ///< as upgrade-logged tells,
    int64_t seconds = 0;                ///< and how long it took
    uint64_t attempts = 0;              ///< at writing
    uint64_t redirects = 0;
    bool network_started = false; ///< again, by upgrade-logged
    std::map<std::string, partition_log> partitions;
    std::vector<finding> findings;     ///< in the order of their first lines
    const message_row *last = nullptr; ///< the last message that is no trace

    /// Whether the run brought any data.
    [[nodiscard]] bool has_data() const
    {
        return brought ? *brought > 0 : reached >= phase::downloading;
    }
};

struct log_file {
    std::deque<run_log> runs; ///< the last ones, at most run_limit
    uint64_t forgotten = 0;   ///< runs before them
    uint64_t lines = 0;
};

constexpr size_t run_limit = 100;
/// A longer line is taken for several: no message of the program is that long.
constexpr size_t line_limit = 64 * 1024;

/// Reads a log of any size to its end, in bounded memory.
log_file read_log(std::istream &in);

/// Calls `take` for each line of `in` without its end, "\n" or "\r\n". `cut` says that the line is
/// longer than line_limit and goes on in the next call.
void each_line(std::istream &in, const std::function<void(std::string_view line, bool cut)> &take);

} // namespace doctor
