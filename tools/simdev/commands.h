// SPDX-License-Identifier: GPL-2.0-or-later
//
// One function a subcommand. Each returns simdev's exit status and throws what it cannot go on
// from.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tools/doctor/flash_judge.h"
#include "tools/simdev/launch.h"
#include "tools/simdev/rehearse.h"

namespace simdev {

/// Number of a partition -> the dump that it is to hold.
using dump_files = std::map<int, std::filesystem::path>;

struct command_options {
    run_options run;
    std::string device_file; ///< empty: the default device, or one that suits the dumps
    dump_files dumps;        ///< for partitions of a new device
    std::vector<doctor::package_choice> packages; ///< that partitions are compared with
    std::string log_file;                         ///< empty: no log
    bool json = false;
    int jobs = 0;      ///< runs at a time; 0: as the command sees fit
    int64_t torn = -1; ///< below 0: cuts fall between the writes
    rehearse_options rehearse;
    std::filesystem::path junit_file; ///< empty: none
};

/// Makes a device folder.
int init_command(const command_options &options);

/// As `fwdoctor flash` for all partitions of the device; exit_good when all are whole.
int status_command(const command_options &options);

/// Runs the program once and reports; its exit status is the program's.
int run_command(const command_options &options);

/// Sweeps; 0 when every cut point recovers, 1 when one does not, 130 when interrupted.
int sweep_command(const command_options &options);

/// Rehearses a package; 0 when every device is as expected, 1 when one is not, 130 when
/// interrupted.
int rehearse_command(const command_options &options);

} // namespace simdev
