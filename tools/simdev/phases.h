// SPDX-License-Identifier: GPL-2.0-or-later
//
// How long an upgrade leaves the watchdog without a kick, phase by phase.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/simdev/runner.h"

namespace simdev {

/// A time without a kick: sleeps and waits, as virtual time counts them, and what else passed here,
/// which a device takes longer for.
struct unfed_time {
    int64_t virtual_us = 0;
    int64_t work_us = 0;
    int64_t sum() const
    {
        return virtual_us + work_us;
    }
};

struct phase_record {
    std::string name;
    int64_t kicks = 0;
    unfed_time longest; ///< within the phase: its ends count as kicks
};

struct watchdog_record_of_run {
    std::vector<phase_record> phases; ///< those that were reached
    unfed_time longest;               ///< over all, the start and the end of the run included
    std::string longest_phases;       ///< "checks" or "download to writing"
};

/// Looks at the operations of a whole fast run; `protocol` names the download.
watchdog_record_of_run measure_phases(const std::vector<operation> &operations,
                                      const std::string &protocol);

std::string phases_text(const watchdog_record_of_run &record);
nlohmann::json phases_json(const watchdog_record_of_run &record);

} // namespace simdev
