// SPDX-License-Identifier: GPL-2.0-or-later
//
// What `fwpkg plan` prints.
#pragma once

#include <string>

#include "tools/fwpkg/planner.h"
#include "tools/fwpkg/report.h"

namespace fwpkg {

/// "written", "not written" and so on.
const char *outcome_name(part_outcome outcome);

/// The verdict for the device, then each part with every comparison. Ends in a newline.
std::string plan_text(const device_plan &plan);
json plan_json(const device_plan &plan);

} // namespace fwpkg
