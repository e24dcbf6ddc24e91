// SPDX-License-Identifier: GPL-2.0-or-later
//
// What `simdev run` says of a run.
#pragma once

#include "tools/simdev/launch.h"
#include "tools/simdev/measure.h"
#include "tools/simdev/report.h"

namespace simdev {

/// Judges the partitions that were written to, in the folder as the run left it, and reads what the
/// program said. Throws failure.
report report_run(const run_record &record, const run_options &options, const run_outcome &outcome);

} // namespace simdev
