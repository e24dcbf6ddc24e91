// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "tools/simdev/runner.h"

namespace simdev {

/// Cuts the model's log into lines and hands their operations on, checking that none is missing.
class log_reader {
public:
    /// `listener` outlives the reader.
    explicit log_reader(const run_listener &listener) : listener_(listener) {}

    /// The next bytes, of any number. Throws failure for a line that is missing.
    void take(std::string_view bytes);

    /// Operations so far.
    uint64_t count() const
    {
        return count_;
    }

private:
    void take_line(std::string_view line);

    const run_listener &listener_;
    std::string buffer_;
    uint64_t count_ = 0;
};

} // namespace simdev
