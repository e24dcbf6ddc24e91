// SPDX-License-Identifier: GPL-2.0-or-later
//
// What `fwpkg plan` prints.
#pragma once

#include <string>
#include <vector>

#include "tools/fwpkg/planner.h"

namespace fwpkg {

/// "written", "not written" and so on.
const char *outcome_name(part_outcome outcome);

/// "upgraded", "refused" (before anything is written), "failed" (in writing) or "endless".
const char *result_name(const device_plan &plan);

/// The result in words, with the exit status and the reason or the time.
std::string verdict_text(const device_plan &plan);

/// A table: a line a device with its result, its time and what becomes of each part.
std::string plan_summary(const std::vector<device_plan> &plans);

/// The verdict for the device, then each part with every comparison. Ends in a newline.
std::string plan_text(const device_plan &plan);

} // namespace fwpkg
