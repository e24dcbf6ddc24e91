// SPDX-License-Identifier: GPL-2.0-or-later
//
// The command line of upgrade-follow.
#pragma once

#include <array>
#include <cstdint>
#include <sys/types.h>

namespace follow {

struct follow_options {
    const char *socket_path;
    mode_t mode;
    bool json;
    bool quiet;
    bool stay;
    const char *state_file; ///< null: none; so are the next ones
    const char *command;
    const char *record_file;
    const char *replay_file;
    double speed;      ///< of the replay; 0: without waiting
    int64_t wait_ms;   ///< -1: for ever
    int64_t linger_ms; ///< of the web server, after the outcome
    int web_port;      ///< -1: no web server; 0: any
    std::array<char, 64> web_address;
};

enum options_result { options_follow, options_over, options_wrong };

/// Reads the command line. options_over: help or version was printed; options_wrong: one line went
/// to standard error.
options_result read_options(follow_options *options, int argc, char **argv);

} // namespace follow
