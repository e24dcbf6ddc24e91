// SPDX-License-Identifier: GPL-2.0-or-later
//
// A package tried on every device that it is for: a fresh simulated one each, the unmodified
// program, the package from a server of simdev's own. What happens is held against fwpkg's plan.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/fwpkg/planner.h"
#include "tools/simdev/launch.h"
#include "tools/simdev/rehearse_check.h"
#include "tools/simdev/report.h"
#include "tools/simdev/sweep.h"

namespace simdev {

struct rehearse_options {
    std::filesystem::path package;
    std::filesystem::path older;                ///< that the devices hold; empty: they are erased
    std::filesystem::path key_file;             ///< for devices that describe no key; empty: none
    std::vector<std::filesystem::path> devices; ///< descriptions
    std::string expect; ///< empty, a result for all devices, or the file of a result for each
    bool sweep = false;
    bool https = false;
};

/// Why a device is not as expected.
enum class trouble_kind {
    plan,     ///< "not as planned": the program did what the plan does not say
    expected, ///< "not as expected"
    recovery, ///< "no recovery": a power cut that the next run does not mend
    none,     ///< "not rehearsed": simdev could not go on
};
const char *name(trouble_kind kind);

struct trouble {
    trouble_kind kind;
    std::string text;
};

struct rehearsed_device {
    fwpkg::device_plan plan;
    std::optional<observed_run> run; ///< none: not rehearsed, see `troubles`, or interrupted
    std::optional<sweep_result> swept;
    std::string expected; ///< empty: whatever the plan says
    std::string note;     ///< what else is to be known
    std::vector<trouble> troubles;
};

struct rehearse_result {
    std::string package;
    std::string sha256; ///< of the package
    std::vector<rehearsed_device> devices;
    int64_t real_us = 0;
    bool interrupted = false;
    /// All devices were tried, and there is no trouble.
    [[nodiscard]] bool good() const;
};

/// Rehearses with `jobs` runs at a time (0: as many as the machine bears). Of `run` count program,
/// fast, grace and faults; the rest is rehearse's own affair. `done` is told how many percent are,
/// from any thread but one at a time. Throws failure for what no device can be tried with: a file
/// that cannot be read or has a mistake, or no device.
rehearse_result rehearse(const rehearse_options &options, const run_options &run, int jobs,
                         const std::function<void(int)> &done);

/// A table of the devices, what is to be known of each, and how many are in trouble.
report report_rehearsal(const rehearse_result &result);

/// For continuous integration: one test case a device, in the XML of JUnit.
std::string rehearsal_junit(const rehearse_result &result);

} // namespace simdev
