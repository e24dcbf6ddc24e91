// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/checks.h"

#include "flash/trailer.h"
#include "package/format.h"
#include "platform/bytes.h"
#include "tools/fwpkg/plan_report.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

bool is_enciphered(std::span<const uint8_t> bytes)
{
    return bytes.size() >= package_header_size &&
           load_be16(bytes.data() + package_encryption_offset) == encryption_rc4;
}

void check_room(const std::string &place, const planned_part &part, findings &to)
{
    if (part.outcome != part_outcome::written || room_left(part) >= 0)
        return;
    to.error(place,
             part.place + ": its {size} bytes and the trailer's " +
                 std::to_string(sizeof(partition_trailer)) + " do not fit " + part.partition +
                 " of {partition} bytes: the trailer overwrites its end",
             {{"size", static_cast<uint64_t>(part.bytes)}, {"partition", *part.partition_size}});
}

} // namespace

std::vector<finding> check_devices(std::span<const uint8_t> bytes,
                                   const std::optional<std::string> &key,
                                   const std::vector<named_device> &devices)
{
    findings to;
    plan_maker plans(bytes);
    for (named_device each : devices) {
        if (key && is_enciphered(bytes) && !each.description.configuration.contains("VENID"))
            each.description.configuration.try_emplace("VENDOR_KEY", *key);
        const device_plan plan = plans.plan(each);
        const std::string place = printable(each.name);
        if (plan.endless || plan.exit_status != 0)
            to.error(place, verdict_text(plan));
        for (const planned_part &part : plan.parts)
            check_room(place, part, to);
    }
    return to.all;
}

} // namespace fwpkg
