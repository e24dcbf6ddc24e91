// SPDX-License-Identifier: GPL-2.0-or-later
//
// One line of `--log`.
#pragma once

#include <string>
#include <vector>

#include "tools/simdev/core/operation.h"

namespace simdev {

/// The operation as one JSON object without a line break (docs/simulated-device.md has the fields).
/// `faults` are the texts of the run's faults.
std::string operation_json(const sim_operation &operation, const std::vector<std::string> &faults);

} // namespace simdev
