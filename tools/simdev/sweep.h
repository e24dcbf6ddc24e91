// SPDX-License-Identifier: GPL-2.0-or-later
//
// A power cut after every flash write of an upgrade: what it leaves, and whether the next run mends
// it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tools/image/trailer.h"
#include "tools/simdev/launch.h"
#include "tools/simdev/report.h"

namespace simdev {

enum class content_state {
    old_content, ///< as before the upgrade
    new_content, ///< as the undisturbed upgrade leaves it
    mixed,       ///< neither
};

struct partition_state {
    content_state content = content_state::old_content;
    image::trailer_state trailer = image::trailer_state::none;
    bool operator==(const partition_state &) const = default;
};

/// What a cut after one flash write leaves.
struct cut_point {
    int64_t write = 0;                         ///< from 1; 0: not tried
    std::map<int, partition_state> partitions; ///< those that the upgrade writes to
    bool recovered = false;  ///< the next run leaves exactly what the undisturbed one does
    int recovery_status = 0; ///< exit status of that run
    /// Whether both leave the same and come to the same: one row for both.
    [[nodiscard]] bool same_as(const cut_point &other) const
    {
        return partitions == other.partitions && recovered == other.recovered &&
               recovery_status == other.recovery_status;
    }
};

struct sweep_result {
    std::vector<cut_point> points; ///< by write, those that were tried
    int64_t writes = 0;            ///< of the undisturbed run
    std::set<int> partitions;      ///< those that it writes to
    int64_t real_us = 0;
    bool interrupted = false;
};

/// Sweeps with `jobs` runs at a time, in copies of the device folder: the folder itself is left
/// alone. `torn` below 0 cuts behind each write, else inside it, behind that many bytes. `done` is
/// told how many percent of the points are tried. Throws failure when the undisturbed run is no
/// success.
sweep_result sweep(const run_options &options, int jobs, int64_t torn,
                   const std::function<void(int)> &done);

/// The numbers that the sweep is made for.
struct sweep_counts {
    int64_t recovered = 0;
    int64_t deceptive =
        0; ///< points with a mixed partition under a trailer with a right check word
    int64_t undetected = 0; ///< of these: the CRC matches as well
};
sweep_counts count_points(const sweep_result &result);

report report_sweep(const sweep_result &result);

} // namespace simdev
