// SPDX-License-Identifier: GPL-2.0-or-later
//
// What differs between two packages, and between what devices would write from them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "tools/fwpkg/package_file.h"
#include "tools/fwpkg/planner.h"

namespace fwpkg {

/// One thing that a package or a part says otherwise.
struct changed_field {
    std::string field; ///< "size", "conditions"
    std::string before;
    std::string after;
};

/// Two pieces of data, compared in blocks of 4096 bytes from their beginnings.
struct changed_blocks {
    int64_t before = 0;  ///< blocks of the first
    int64_t after = 0;   ///< blocks of the second
    int64_t changed = 0; ///< blocks that differ or that one of them alone has
    std::vector<std::pair<int64_t, int64_t>> runs; ///< those: first and last block of each run
};

/// A part of the one package and the part of the other that comes in its place.
struct changed_part {
    std::optional<size_t> before; ///< index in the first package; none: it is new
    std::optional<size_t> after;  ///< index in the second; none: it is gone
    std::string type;             ///< the type's name
    std::vector<changed_field> fields;
    changed_blocks blocks;
    bool same() const
    {
        return before && after && fields.empty() && blocks.changed == 0;
    }
};

/// What a device would have in one partition.
struct changed_partition {
    std::string partition;             ///< "/dev/fla2"
    std::optional<size_t> part_before; ///< the part that was written there; none: it is left alone
    std::optional<size_t> part_after;
    changed_blocks blocks;
};

struct changed_device {
    device_plan before;
    device_plan after;
    std::vector<changed_partition> partitions; ///< that either package writes, by number
    bool same() const;
};

struct package_difference {
    bool same = true; ///< byte for byte; nothing below differs then
    std::vector<changed_field> fields;
    std::vector<changed_part> parts; ///< those of the first package in order, then what is new
    std::vector<changed_device> devices;
};

/// A package as a file and as it was read, up to its table.
struct package_side {
    std::span<const uint8_t> bytes;
    const package_file &file;
};

/// Compares two packages that were read whole. Parts belong together when their type, conditions
/// and features are the same, else type and conditions, else the type, in table order.
package_difference compare_packages(const package_side &before, const package_side &after,
                                    const std::vector<named_device> &devices);

/// The same for people; `before_name` and `after_name` are the files. Ends in a newline.
std::string difference_text(const package_difference &difference, const std::string &before_name,
                            const std::string &after_name);

} // namespace fwpkg
