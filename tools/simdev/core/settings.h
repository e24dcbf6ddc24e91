// SPDX-License-Identifier: GPL-2.0-or-later
//
// How the simulation is to be, as texts: what simdev sets in the environment of the program that it
// runs, and what tests hand to sim_start.
#pragma once

#include <array>

/// An empty text is "0".
enum setting_index {
    setting_folder,       ///< the device folder
    setting_fast,         ///< "1": sleeps and unanswered waits are counted instead of waited
    setting_grace_ms,     ///< fast: how long a peer may really take to answer
    setting_ports,        ///< as network_start has it
    setting_hosts,        ///< the same
    setting_real_network, ///< "1": the same
    setting_faults,       ///< texts of faults, separated by ";" (faults.h)
    setting_receivers,    ///< "1", "2" or "12": those that somebody else is
    setting_seed,         ///< for what a fault leaves open
    setting_script_us,    ///< virtual duration of the network-stop script
    setting_log_fd,       ///< the program's descriptor of the pipe to simdev
    setting_quiet,        ///< "1": nothing is logged but the start
    setting_count,
};
using sim_settings = std::array<const char *, setting_count>;

/// The variables of the environment.
inline constexpr sim_settings setting_names = {
    "SIMDEV_FOLDER", "SIMDEV_FAST",         "SIMDEV_GRACE_MS", "SIMDEV_PORTS",
    "SIMDEV_HOSTS",  "SIMDEV_REAL_NETWORK", "SIMDEV_FAULTS",   "SIMDEV_RECEIVERS",
    "SIMDEV_SEED",   "SIMDEV_SCRIPT_US",    "SIMDEV_LOG_FD",   "SIMDEV_QUIET",
};
