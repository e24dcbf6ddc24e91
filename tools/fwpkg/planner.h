// SPDX-License-Identifier: GPL-2.0-or-later
//
// What an upgrade with a package would do to a device, without a run.
//
// The device's own code reads, deciphers and checks the package and answers both questions about
// each part, with the described device's configuration, keys and requirements. What this unit adds
// is the order of the device's steps around that code, and the reasons.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tools/device/device.h"

namespace fwpkg {

/// A device and the name of its description's file.
struct named_device {
    std::string name;
    device description;
};

enum class part_outcome {
    written,
    empty,       ///< taken, without data to write
    dropped,     ///< optional, and not for this device
    refused,     ///< ends the upgrade: mandatory and not for this device, or not to be written
    not_written, ///< the upgrade ended before it was written
};

/// One comparison that the device makes about a part.
struct planned_comparison {
    std::string text;                  ///< "ram:>=64"
    std::optional<std::string> actual; ///< the device's value, or the part's feature; none: unknown
    bool holds;
    std::vector<std::string> warnings; ///< see value_warnings
};

struct planned_part {
    std::string place; ///< "part 0 (kernel)"
    std::string type_name;
    part_outcome outcome = part_outcome::not_written;
    std::string reason; ///< the first, in the device's order; empty when written
    std::vector<planned_comparison> conditions;
    std::optional<std::string> requirement_text; ///< as the device finds it for this part
    std::vector<planned_comparison> requirement; ///< empty where the text does not compile
    std::string partition;                       ///< "/dev/fla2"
    std::optional<uint64_t> partition_size;
    int64_t bytes = 0;  ///< of data to write
    int64_t blocks = 0; ///< to write
    int64_t milliseconds = 0;
};

struct device_plan {
    std::string name;
    int exit_status = 0;  ///< 0 upgraded, 1 refused, 2 failed in writing
    bool endless = false; ///< a write would be tried again until the watchdog ends it
    std::string reason;   ///< why the exit status is not 0, or the run has no end
    std::vector<planned_part> parts;
    int64_t blocks = 0;
    int64_t milliseconds = 0; ///< by the fixed pacing; retries, network and script are not in it
};

/// Bytes of the partition that neither the data of a written part nor the trailer takes; below 0
/// where the trailer covers data.
int64_t room_left(const planned_part &part);

/// Plans for the package `bytes`, at most package_capacity: it is deciphered and checked once for
/// each key.
class plan_maker {
public:
    explicit plan_maker(std::span<const uint8_t> bytes); ///< outlive the object
    ~plan_maker();
    device_plan plan(const named_device &target);

private:
    struct state;
    std::unique_ptr<state> state_;
};

} // namespace fwpkg
