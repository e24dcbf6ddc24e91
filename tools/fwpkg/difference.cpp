// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/difference.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "tools/fwpkg/condition_code.h"
#include "tools/fwpkg/part_data.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

using data_span = std::span<const uint8_t>;

changed_blocks compare_blocks(data_span before, data_span after)
{
    const auto blocks = [](data_span all) {
        return static_cast<int64_t>((all.size() + block_size - 1) / block_size);
    };
    const auto block = [](data_span all, int64_t index) {
        const size_t begin = std::min(all.size(), static_cast<size_t>(index) * block_size);
        return all.subspan(begin, std::min(all.size() - begin, size_t{block_size}));
    };
    changed_blocks result{blocks(before), blocks(after), 0, {}};
    for (int64_t i = 0; i < std::max(result.before, result.after); i++) {
        const data_span a = block(before, i);
        const data_span b = block(after, i);
        if (a.size() == b.size() && memcmp(a.data(), b.data(), a.size()) == 0)
            continue;
        result.changed++;
        if (!result.runs.empty() && result.runs.back().second == i - 1)
            result.runs.back().second = i;
        else
            result.runs.emplace_back(i, i);
    }
    return result;
}

/// Fields that differ, in the order in which they are compared.
struct field_list {
    std::vector<changed_field> fields;

    void compare(const char *field, const std::string &before, const std::string &after)
    {
        if (before != after)
            fields.push_back({field, before, after});
    }
    void compare(const char *field, uint32_t before, uint32_t after)
    {
        compare(field, std::to_string(before), std::to_string(after));
    }
};

std::string feature_list_text(const part_entry &entry)
{
    std::string text;
    for (const feature &each : list_features(entry.features()))
        text += (text.empty() ? "" : ", ") + printable(each.name) + "=\"" + printable(each.value) +
                "\"" + (each.complete ? "" : " (incomplete)");
    return text;
}

std::vector<changed_field> compare_entries(const part_entry &before, const part_entry &after)
{
    field_list list;
    list.compare("size", before.part.size, after.part.size);
    list.compare("actual size", before.part.actual_size, after.part.actual_size);
    list.compare("offset", before.part.offset, after.part.offset);
    list.compare("flags", before.part.flags, after.part.flags);
    list.compare("compress", before.part.compress, after.part.compress);
    if (!std::ranges::equal(before.conditions(), after.conditions()))
        list.fields.push_back({"conditions", decompile_condition(before.conditions()).text,
                               decompile_condition(after.conditions()).text});
    if (!std::ranges::equal(before.features(), after.features()))
        list.fields.push_back({"features", feature_list_text(before), feature_list_text(after)});
    return list.fields;
}

std::vector<changed_field> compare_heads(const package_side &before, const package_side &after)
{
    field_list list;
    const auto encryption = [](const package_file &file) {
        return std::string(file.record.encryp == encryption_none ? "in clear" : "enciphered");
    };
    list.compare("encryption", encryption(before.file), encryption(after.file));
    list.compare("size", before.file.record.size, after.file.record.size);
    list.compare("content identifier", content_identifier(before.file),
                 content_identifier(after.file));
    // The same header and contents: what is left is the key.
    if (list.fields.empty() && !std::ranges::equal(before.bytes, after.bytes))
        list.fields.push_back({"key", "one", "another"});
    return list.fields;
}

using partners = std::vector<std::optional<size_t>>;

/// For each part of `before` the index of its partner in `after`.
partners find_partners(const std::vector<part_entry> &before, const std::vector<part_entry> &after)
{
    partners found(before.size());
    std::vector<bool> taken(after.size());
    const auto alike = [](const part_entry &a, const part_entry &b, int how_much) {
        return a.part.type == b.part.type &&
               (how_much < 1 || std::ranges::equal(a.conditions(), b.conditions())) &&
               (how_much < 2 || std::ranges::equal(a.features(), b.features()));
    };
    for (const int how_much : {2, 1, 0}) {
        for (size_t i = 0; i < before.size(); i++) {
            for (size_t j = 0; j < after.size() && !found[i]; j++) {
                if (taken[j] || !alike(before[i], after[j], how_much))
                    continue;
                found[i] = j;
                taken[j] = true;
            }
        }
    }
    return found;
}

/// A package, and its blocks as the device has them.
struct side {
    const package_side &package;
    data_span blocks;

    explicit side(const package_side &of) : package(of), blocks(whole_blocks(of.file.blocks.get()))
    {
    }
    const part_entry &entry(size_t index) const
    {
        return package.file.parts[index];
    }
    data_span data_of(std::optional<size_t> index) const
    {
        return index ? written_data(blocks, entry(*index).part) : data_span();
    }
};

std::vector<changed_part> compare_parts(const side &before, const side &after)
{
    const std::vector<part_entry> &old_parts = before.package.file.parts;
    const std::vector<part_entry> &new_parts = after.package.file.parts;
    const partners found = find_partners(old_parts, new_parts);
    std::vector<changed_part> result;
    const auto add = [&](std::optional<size_t> a, std::optional<size_t> b) {
        const part_entry &named = a ? old_parts[*a] : new_parts[*b];
        result.push_back({a,
                          b,
                          type_name(named.part.type),
                          {},
                          compare_blocks(before.data_of(a), after.data_of(b))});
        if (a && b)
            result.back().fields = compare_entries(old_parts[*a], new_parts[*b]);
    };
    for (size_t i = 0; i < old_parts.size(); i++)
        add(i, found[i]);
    for (size_t j = 0; j < new_parts.size(); j++) {
        if (std::ranges::find(found, std::optional(j)) == found.end())
            add({}, j);
    }
    return result;
}

/// The part that each partition holds in the end.
std::map<std::string, size_t> written_parts(const device_plan &plan)
{
    std::map<std::string, size_t> written;
    for (size_t i = 0; i < plan.parts.size(); i++) {
        if (plan.parts[i].outcome == part_outcome::written)
            written[plan.parts[i].partition] = i;
    }
    return written;
}

std::vector<changed_partition> compare_partitions(const device_plan &old_plan,
                                                  const device_plan &new_plan, const side &before,
                                                  const side &after)
{
    std::map<std::string, changed_partition> partitions;
    for (const auto &[name, index] : written_parts(old_plan))
        partitions[name].part_before = index;
    for (const auto &[name, index] : written_parts(new_plan))
        partitions[name].part_after = index;
    std::vector<changed_partition> result;
    for (auto &[name, each] : partitions) {
        each.partition = name;
        each.blocks =
            compare_blocks(before.data_of(each.part_before), after.data_of(each.part_after));
        result.push_back(std::move(each));
    }
    return result;
}

} // namespace

bool changed_device::same() const
{
    const auto left_alone = [](const changed_partition &each) { return each.blocks.changed == 0; };
    return before.endless == after.endless && before.exit_status == after.exit_status &&
           std::ranges::all_of(partitions, left_alone);
}

package_difference compare_packages(const package_side &before, const package_side &after,
                                    const std::vector<named_device> &devices)
{
    const side old_side(before);
    const side new_side(after);
    package_difference result;
    result.same = std::ranges::equal(before.bytes, after.bytes);
    result.fields = compare_heads(before, after);
    result.parts = compare_parts(old_side, new_side);
    plan_maker old_plans(before.bytes);
    plan_maker new_plans(after.bytes);
    for (const named_device &each : devices) {
        changed_device changed{old_plans.plan(each), new_plans.plan(each), {}};
        changed.partitions = compare_partitions(changed.before, changed.after, old_side, new_side);
        result.devices.push_back(std::move(changed));
    }
    return result;
}

} // namespace fwpkg
