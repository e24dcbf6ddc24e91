// SPDX-License-Identifier: GPL-2.0-or-later
//
// What `upgrade` says on standard error, and what it means. The rows in messages.cpp are the one
// source of fwdoctor's explanations and of docs/troubleshooting.md.
#pragma once

#include <span>
#include <vector>

namespace doctor {

/// What a message tells about the course of a run, beside its meaning.
enum class event {
    none,
    start,          ///< a run begins
    url,            ///< argument 1 is the URL
    download_stage, ///< the stage DOWNLOADING
    percentage,     ///< argument 1
    length,         ///< the download has ended; argument 1: bytes stored
    http_status,    ///< a response has begun
    redirect,       ///< a response that sends elsewhere
    package,        ///< the package was looked at, so the download was complete
    write_stage,
    verify_stage,
    done_stage,
    open_partition, ///< argument 1 is the device; from here to no_trailer: of the flash
    no_partition,   ///< a part whose partition is not written; the one before it is complete
    retry,          ///< a write failed; argument 1 is the block
    difference,     ///< argument 1 is the block that reads back different
    unreadable,     ///< argument 1 is the block that cannot be read back
    no_trailer,     ///< the checksum at the partition's end could not be written
    not_started,    ///< the outcomes; this one is said where the run cannot even begin
    invalid_url,
    download_failed,
    invalid_package,
    upgrade_failed,
    logged_end,     ///< upgrade-logged: arguments 1 and 2 are the exit status and the seconds
    logged_network, ///< upgrade-logged has started the network again
};

/// How much a message explains: of a run's messages the one of the highest weight names the cause,
/// of several the first. Those up to `weight_notice` are no cause.
enum message_weight : int {
    weight_trace = 0,       ///< said in every run
    weight_progress = 1,    ///< how far the run came
    weight_notice = 2,      ///< worth knowing, and no cause of a failure by itself
    weight_outcome = 3,     ///< that it failed, not why
    weight_consequence = 4, ///< follows from something said before
    weight_hint = 5,        ///< the cause where nothing says more
    weight_likely = 6,
    weight_cause = 7, ///< of a download that brought nothing
    weight_package_cause =
        8, ///< a complete download that is refused: earlier oddities mattered not
    weight_flash_cause = 9,
};

struct message_row {
    /// The message as in a printf format: directives stand for whatever the program puts there, and
    /// a text in place of one makes a row for this text alone. It ends in a newline where the
    /// program's message does; else the next message follows in the same line.
    const char *format;
    event what;
    message_weight weight;
    const char *meaning;  ///< one sentence; {1} is the message's first argument
    const char *remedies; ///< one a line, the likeliest first; empty where there is none to need
};

struct message_section {
    const char *title;
    std::span<const message_row> rows;
};

/// The whole table, and the part of it that is of the download.
std::vector<message_section> message_sections();
std::vector<message_section> download_sections();

/// What no message says: it shows in what is missing, or in several messages together.
enum class situation {
    upgraded,
    unusable_url,
    download_ended,
    server_silent,
    download_unexplained,
    part_does_not_apply,
    redirect_circle,
    cut_start,
    cut_download,
    cut_script,
    cut_writing,
    cut_verifying,
    no_beginning,
    failed_unexplained,
    count,
};

struct situation_row {
    const char *shows; ///< by what it shows
    const char *meaning;
    const char *remedies;
};

/// In the order of the enum.
extern const std::span<const situation_row> situation_rows;

} // namespace doctor
