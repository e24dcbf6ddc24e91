// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/planner.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>

#include "flash/flash.h"
#include "flash/trailer.h"
#include "package/conditions.h"
#include "package/decrypt.h"
#include "package/selection.h"
#include "package/validate.h"
#include "platform/device.h"
#include "platform/syscfg.h"
#include "tools/fwpkg/blocks.h"
#include "tools/fwpkg/check_condition.h"
#include "tools/fwpkg/condition_code.h"
#include "tools/fwpkg/configuration.h"
#include "tools/fwpkg/package_file.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {

/// The package as the device has it before it looks at the parts.
struct prepared_package {
    block_buffer buffer;
    package record{};
    std::string problem; ///< why the device refuses it, empty when it does not
};

namespace {

constexpr int write_attempts = 3;
constexpr int64_t rest_before_done_milliseconds = 2000;
constexpr int requirement_capacity = 1024; // what the device compiles a requirement into

using lookup = std::function<const char *(const char *name)>;

/// The name that the device has its key under.
const char *key_name()
{
    return getsyscfg("VENDOR_KEY") != nullptr ? "VENDOR_KEY" : "VENID";
}

/// `hidden`, unless it is empty, is the name whose value is compared but not shown.
std::vector<planned_comparison> compare_all(std::span<const uint8_t> code, const lookup &find,
                                            const std::string &hidden)
{
    std::vector<planned_comparison> result;
    const std::vector<condition_item> items = list_condition(code);
    for (const condition_item &item : std::span(items).first(reached_items(items))) {
        if (!item.comparison || !item.complete)
            continue;
        const char *answer = find(item.name.c_str());
        const auto actual = answer == nullptr ? std::nullopt : std::optional<std::string>(answer);
        const bool holds = comparison_holds(item, actual);
        if (actual && item.name == hidden)
            result.push_back({item_text(item), "(the key)", holds, {}});
        else
            result.push_back({item_text(item), actual, holds, value_warnings(item, actual)});
    }
    return result;
}

/// "board=rev2 does not hold, there is "rev1"": the first comparison that fails.
std::string failed_comparison(const std::vector<planned_comparison> &comparisons)
{
    const auto failed = std::ranges::find(comparisons, false, &planned_comparison::holds);
    if (failed == comparisons.end())
        return {};
    return ": " + failed->text + " does not hold, " +
           (failed->actual ? "the value is \"" + printable(*failed->actual) + "\""
                           : "there is no value");
}

/// Reads, deciphers and checks the package up to its table; gives the device's reason for refusing
/// it, or the empty text. What deciphering prints has the key in it and is left out.
std::string prepare(prepared_package &to)
{
    init_package_struct(&to.record);
    const uint8_t *block = to.buffer->blocks[0];
    if (to.buffer->total == 0)
        return "error reading package: it is empty";
    device_words words;
    if (read_package_head(&to.record, block, block_size) < 0)
        return "error reading package: " + words.lines();
    if (decrypt_package(nullptr, &to.record, to.buffer.get()) < 0) {
        if (to.record.encryp == encryption_none)
            return "decrypt package failed: in clear, and the device has a VENDOR_KEY";
        return to.record.encryp == encryption_rc4
                   ? "decrypt package failed: enciphered, and the device has no key"
                   : "decrypt package failed: unknown encryption";
    }
    if (valid_package(nullptr, &to.record, to.buffer.get()) == 0) {
        if (to.record.size != static_cast<uint32_t>(to.buffer->total))
            return "invalid package: the header says " + std::to_string(to.record.size) +
                   " bytes, there are " + std::to_string(to.buffer->total);
        return to.record.encryp == encryption_rc4
                   ? "invalid package: the digest is wrong: another key, or damaged"
                   : "invalid package: the digest is wrong";
    }
    return read_package_parts(&to.record, block, block_size) >= 0 ? ""
                                                                  : "error reading package parts";
}

/// One plan in the making.
struct planner {
    const named_device &target;
    const iobuf *buffer;
    package record;
    device_plan plan{};

    bool select_parts();
    void write_parts();
    std::string list_comparisons(const package_part &part, planned_part &planned) const;
    bool judge(package_part &part, planned_part &planned) const;
    bool parts_are_present();
    bool write_part(const package_part &part, planned_part &planned);
    bool end(int exit_status, const std::string &reason);
    bool refuse(planned_part &planned, int exit_status, const std::string &reason);
};

bool planner::end(int exit_status, const std::string &reason)
{
    plan.exit_status = exit_status;
    plan.reason = reason;
    return false;
}

bool planner::refuse(planned_part &planned, int exit_status, const std::string &reason)
{
    planned.outcome = part_outcome::refused;
    planned.reason = reason;
    return end(exit_status, planned.place + ": " + reason);
}

/// Why the device's answer about its requirement is no: the text as it stands, unless an earlier
/// part of the type used it up, or the comparison that fails.
std::string requirement_reason(const std::string &original, const planned_part &planned,
                               bool compiles)
{
    if (compiles)
        return "the device's requirement is not met" + failed_comparison(planned.requirement);
    return original != *planned.requirement_text
               ? "the device's requirement was used up by an earlier part of the type"
               : "the device's requirement does not compile";
}

/// Lists the comparisons of the requirement `text` for a part; false when it does not compile.
bool list_requirement(std::string text, const package_part &part, planned_part &planned)
{
    std::vector<uint8_t> code(requirement_capacity);
    const int length = build_conditions(text.data(), code.data(), requirement_capacity);
    if (length < 0)
        return false;
    _feature_set = part.features;
    _feature_set_size = part.features_length;
    planned.requirement =
        compare_all(std::span(code).first(static_cast<size_t>(length)), get_feature, "");
    _feature_set = nullptr;
    _feature_set_size = 0;
    return true;
}

/// Lists what the device is about to compare, and returns what it would mean if the requirement
/// were not met. The requirement is as the environment has it now: not as it was described, once a
/// part has used it up.
std::string planner::list_comparisons(const package_part &part, planned_part &planned) const
{
    planned.conditions =
        compare_all({part.conditions, part.conditions_length}, getsyscfg, key_name());
    if (part.type >= part_type_count)
        return "type " + std::to_string(part.type) + " is above " +
               std::to_string(part_type_count - 1) + ": no device takes it";
    const std::string type = part_type_names[part.type];
    const char *text = getenv(requirement_variable(type).c_str());
    if (text == nullptr)
        return {};
    planned.requirement_text = text;
    const bool compiles = list_requirement(text, part, planned);
    return requirement_reason(target.description.requirements.at(type), planned, compiles);
}

bool partition_size(void *context, int32_t /*type*/, uint64_t *size)
{
    const auto *planned = static_cast<const planned_part *>(context);
    *size = planned->partition_size.value_or(0);
    return planned->partition_size.has_value();
}

/// The device's verdict on a part, with its reason in words. False when it refuses the package.
bool planner::judge(package_part &part, planned_part &planned) const
{
    const uint32_t needed = part.actual_size;
    const std::string requirement = list_comparisons(part, planned);
    const part_verdict verdict = judge_part(&part, partition_size, &planned);
    if (verdict.refused && verdict.fault == part_fault_conditions) { // it asked no further
        planned.requirement_text.reset();
        planned.requirement.clear();
    }
    if (verdict.fault != part_fault_none)
        planned.outcome = verdict.refused ? part_outcome::refused : part_outcome::dropped;
    switch (verdict.fault) {
    case part_fault_conditions:
        planned.reason = "its conditions are not met" + failed_comparison(planned.conditions);
        break;
    case part_fault_requirement:
        planned.reason = requirement;
        break;
    case part_fault_partition:
        planned.reason = "cannot open target device: there is no " + planned.partition;
        break;
    case part_fault_room:
        planned.reason = "not enough space on target device: " + std::to_string(needed) +
                         " bytes needed, " + planned.partition + " has " +
                         std::to_string(*planned.partition_size);
        break;
    case part_fault_none:
        break;
    }
    return !verdict.refused;
}

/// Walks the parts as the device does before it writes anything.
bool planner::select_parts()
{
    for (int index = 0; index < package_part_count && record.parts[index].type >= 0; index++) {
        const package_part &part = record.parts[index];
        planned_part planned;
        planned.place = part_entry{index, 0, 0, part}.place();
        planned.type_name = type_name(part.type);
        planned.partition = partition_device(part.type).text;
        const auto size = target.description.partitions.find(part.type);
        if (size != target.description.partitions.end())
            planned.partition_size = size->second;
        plan.parts.push_back(std::move(planned));
    }
    for (size_t index = 0; index < plan.parts.size(); index++) {
        package_part &part = record.parts[index];
        planned_part &planned = plan.parts[index];
        if (!judge(part, planned))
            return end(1, planned.place + ": " + planned.reason);
        if (planned.outcome == part_outcome::not_written && part.size == 0)
            planned.outcome = part_outcome::empty;
    }
    return parts_are_present();
}

/// Blocks that the writer takes: its sizes are signed.
int64_t block_number(const package_part &part)
{
    const int64_t size = static_cast<int32_t>(part.size);
    return size <= 0 ? 0 : (size + block_size - 1) / block_size;
}

bool planner::parts_are_present()
{
    const int absent = first_absent_part(&record, buffer);
    return absent < 0 ||
           refuse(plan.parts[static_cast<size_t>(absent)], 1, "its data is not in the package");
}

bool planner::write_part(const package_part &part, planned_part &planned)
{
    if (!part_type_is_writable(part.type))
        return refuse(planned, 2,
                      "writing partition " + std::to_string(part.type) + " is not supported");
    if (!planned.partition_size)
        return refuse(planned, 2, "cannot open " + planned.partition);
    planned.bytes = std::max<int64_t>(0, static_cast<int32_t>(part.size));
    planned.blocks = block_number(part);
    planned.milliseconds =
        (planned.blocks * block_rest_microseconds + trailer_rest_microseconds) / 1000;
    // A block that crosses the partition's end is cut and counts; one that begins there never does.
    if (planned.blocks > 0 &&
        static_cast<uint64_t>(planned.blocks - 1) * block_size >= *planned.partition_size) {
        plan.endless = true;
        return refuse(planned, 2,
                      "its " + std::to_string(planned.bytes) + " bytes run over the end of " +
                          planned.partition + ": that write is tried again for ever");
    }
    planned.outcome = part_outcome::written;
    plan.blocks += planned.blocks;
    plan.milliseconds += planned.milliseconds;
    return true;
}

void planner::write_parts()
{
    for (size_t index = 0; index < plan.parts.size(); index++) {
        if (record.parts[index].size == 0)
            continue;
        if (!write_part(record.parts[index], plan.parts[index])) {
            plan.blocks *= plan.endless ? 1 : write_attempts;
            plan.milliseconds *= plan.endless ? 1 : write_attempts;
            return;
        }
    }
    plan.milliseconds += rest_before_done_milliseconds;
}

} // namespace

int64_t room_left(const planned_part &part)
{
    return static_cast<int64_t>(*part.partition_size) - part.bytes -
           static_cast<int64_t>(sizeof(partition_trailer));
}

struct plan_maker::state {
    using keys = std::pair<std::optional<std::string>, std::optional<std::string>>;
    std::span<const uint8_t> bytes;
    std::map<keys, prepared_package> prepared;
};

plan_maker::plan_maker(std::span<const uint8_t> bytes) : state_(new state{bytes, {}}) {}

plan_maker::~plan_maker() = default;

device_plan plan_maker::plan(const named_device &target)
{
    const device_configuration configuration(target.description);
    const auto text = [](const char *value) {
        return value == nullptr ? std::nullopt : std::optional<std::string>(value);
    };
    const auto [entry, fresh] =
        state_->prepared.try_emplace({text(getsyscfg("VENDOR_KEY")), text(getsyscfg("VENID"))});
    prepared_package &prepared = entry->second;
    if (fresh) {
        prepared.buffer = load_blocks(state_->bytes);
        prepared.problem = prepare(prepared);
    }
    planner now{target, prepared.buffer.get(), prepared.record};
    now.plan.name = target.name;
    if (!prepared.problem.empty())
        now.end(1, prepared.problem);
    else if (now.select_parts())
        now.write_parts();
    return std::move(now.plan);
}

} // namespace fwpkg
