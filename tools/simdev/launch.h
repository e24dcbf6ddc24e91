// SPDX-License-Identifier: GPL-2.0-or-later
//
// One run of the program on a device folder.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/simdev/core/operation.h"

namespace simdev {

struct run_options {
    std::filesystem::path folder;
    std::vector<std::string> arguments; ///< of the program: the URL
    std::filesystem::path program;      ///< empty: the one beside simdev
    bool fast = false;
    int grace_ms = 1000;
    int tftp_port = 0;                  ///< real port behind UDP port 69; 0: 69
    std::vector<std::string> port_maps; ///< "21=2121": TCP ports
    std::vector<std::string> host_maps; ///< "fw.example=127.0.0.1"
    bool real_network = false;          ///< addresses that nothing covers are the real ones
    std::vector<std::string> faults;
    std::map<int, std::filesystem::path> receivers; ///< 1 or 2 -> the socket of who is it
    uint64_t seed = 0;
    std::string stdout_file; ///< empty: run/stdout in the folder; "-": simdev's own
    std::string stderr_file; ///< the same
    bool quiet = false;      ///< no log beyond the first line: the fastest
};

/// Told each operation as it happens; may be empty.
using run_listener = std::function<void(const sim_operation &)>;

struct run_outcome {
    int exit_status = 0;       ///< the program's; 128 + signal when one ended it
    std::optional<int> signal; ///< that ended it
    int64_t real_us = 0;       ///< from the start of the process to its end
    bool interrupted = false;  ///< simdev was asked to stop and ended the program
};

/// Runs the program to its end, or ends it when simdev is interrupted. Throws failure when it
/// cannot be started, does not run in the simulation, or the log is not complete; what read_device
/// throws for a device.toml that is wrong.
run_outcome run_program(const run_options &options, const run_listener &listener);

/// Where the program's standard error of a run is kept.
std::filesystem::path stderr_path(const run_options &options);

/// True when that is a file to read afterwards: not a device or a pipe, which may have no end.
bool is_stderr_kept(const run_options &options);

/// What it says there, without empty lines; nothing where it is not kept. Throws failure.
std::vector<std::string> stderr_lines(const run_options &options);

} // namespace simdev
