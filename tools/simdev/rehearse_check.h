// SPDX-License-Identifier: GPL-2.0-or-later
//
// A run held against the plan for it, and what each device must come to.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/fwpkg/package_file.h"
#include "tools/fwpkg/planner.h"
#include "tools/simdev/folder.h"
#include "tools/simdev/launch.h"

namespace simdev {

/// What a run did, of all that a plan foretells.
struct observed_run {
    std::optional<int> exit_status; ///< none: a write was tried for ever, and simdev ended it
    int64_t blocks = 0;             ///< that were written, in all attempts; trailers are none
    int64_t rest_us = 0;            ///< slept once the script was over
    int64_t virtual_us = 0;         ///< all of the run
    std::string last_line;          ///< that the program said on standard error
};

/// Runs the program to its end, or until one write has failed often enough in a row to know that it
/// never will end. Throws what run_program throws, and failure when simdev was interrupted.
observed_run observe_run(const run_options &options);

/// What partitions that held `contents` hold once the plan for `package`, deciphered, has come to
/// pass.
void write_as_planned(partition_contents &contents, const fwpkg::device_plan &plan,
                      const fwpkg::package_file &package);

/// What is not as planned, a sentence each; empty when all is. `planned` are the contents that
/// write_as_planned gave.
std::vector<std::string> compare_with_plan(const fwpkg::device_plan &plan, const observed_run &run,
                                           const partition_contents &planned,
                                           const partition_contents &found);

/// The result that each of `devices` must come to, in order. `expect` is "upgraded" or "refused"
/// for all of them, empty for none ("" each), or the path of a TOML file that has one for each, by
/// the name of its description:
///
///     "rev1.toml" = "refused"    # or "upgraded", "failed", "endless"
///
/// Throws failure for a file that cannot be read or has a mistake, that leaves one of the devices
/// out, or names one that is none of them.
std::vector<std::string> read_expectations(const std::string &expect,
                                           const std::vector<std::filesystem::path> &devices);

/// "upgraded", "refused", "failed" or "endless", as plans have it; "exit status 100" for others.
std::string result_text(const observed_run &run);

} // namespace simdev
