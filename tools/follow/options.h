// SPDX-License-Identifier: GPL-2.0-or-later
//
// The command line of upgrade-follow.
#pragma once

#include <array>
#include <cstdint>
#include <sys/types.h>

#include "platform/device.h"

namespace follow {

struct follow_options {
    const char *socket_path = status_receivers[0];
    mode_t mode = 0600;
    bool json = false;
    bool quiet = false;
    bool stay = false;
    const char *state_file = nullptr; ///< null: none; so are the next ones
    const char *command = nullptr;
    const char *record_file = nullptr;
    const char *replay_file = nullptr;
    double speed = 1;           ///< of the replay; 0: without waiting
    int64_t wait_ms = -1;       ///< -1: for ever
    int64_t linger_ms = 30'000; ///< of the web server, after the outcome
    int web_port = -1;          ///< -1: no web server; 0: any
    std::array<char, 64> web_address = {"127.0.0.1"};
};

enum options_result { options_follow, options_over, options_wrong };

/// Reads the command line into `options`, which has the defaults. options_over: help or version was
/// printed; options_wrong: one line went to standard error.
options_result read_options(follow_options *options, int argc, char **argv);

} // namespace follow
