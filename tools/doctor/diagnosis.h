// SPDX-License-Identifier: GPL-2.0-or-later
//
// From what a run said to why it ended as it did.
#pragma once

#include <string>
#include <vector>

#include "tools/doctor/log.h"

namespace doctor {

/// What became of the device's network.
enum class network_state { runs, stopped, unknown, started_again };

struct diagnosis {
    std::string cause;                 ///< one sentence
    std::vector<std::string> remedies; ///< the likeliest first
    const finding *from = nullptr;     ///< the finding in the run that says it, if one does
    network_state network = network_state::unknown;
};

/// What the finding's message means, with its arguments where the row says "{1}" to "{9}".
std::string meaning_of(const finding &said);

/// Judges a run; the result points into it.
diagnosis diagnose(const run_log &run);

/// A run that did all it had to do and said nothing against the result.
bool is_flawless(const run_log &run);

/// The lines of `text`.
std::vector<std::string> split_lines(const char *text);

} // namespace doctor
