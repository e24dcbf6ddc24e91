// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <stdexcept>

namespace simdev {

/// What simdev cannot go on from, as one line for the user.
struct failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// simdev's own exit status for every failure of its own; `upgrade` never ends with it.
constexpr int exit_own_failure = 125;

} // namespace simdev
