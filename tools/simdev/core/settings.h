// SPDX-License-Identifier: GPL-2.0-or-later
//
// Between simdev and the program that it runs: settings one way, in the environment; operations the
// other, each as it stands in memory (operation.h) in the pipe.
#pragma once

#include <iterator>

/// The variables, in the order of the enum; simdev sets them all.
enum setting_index {
    setting_folder,
    setting_fast, ///< "1" or "0", as the other switches
    setting_grace_ms,
    setting_ports,
    setting_hosts,
    setting_real_network,
    setting_faults,
    setting_receivers,
    setting_seed,
    setting_script_us,
    setting_log_fd, ///< the program's descriptor of the pipe
    setting_quiet,  ///< nothing is logged but the start
    setting_count,
};
inline constexpr const char *setting_names[] = {
    "SIMDEV_FOLDER", "SIMDEV_FAST",         "SIMDEV_GRACE_MS", "SIMDEV_PORTS",
    "SIMDEV_HOSTS",  "SIMDEV_REAL_NETWORK", "SIMDEV_FAULTS",   "SIMDEV_RECEIVERS",
    "SIMDEV_SEED",   "SIMDEV_SCRIPT_US",    "SIMDEV_LOG_FD",   "SIMDEV_QUIET",
};
static_assert(std::size(setting_names) == setting_count);

/// Starts the simulation as the environment says, with a sink that writes to the pipe. Does nothing
/// without a folder in it; ends the program with 125 when it is not usable.
void sim_start_from_environment();
