// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/overlap.h"

#include <algorithm>
#include <array>
#include <vector>

#include "package/conditions.h"
#include "tools/fwpkg/condition_code.h"

namespace fwpkg {
namespace {

// Together a fraction of a second, also for conditions that fill the whole table.
constexpr size_t combination_limit = 20'000;
constexpr size_t step_limit = 20'000'000; // names looked at

struct candidates {
    std::string name;
    std::vector<std::string> values;
    bool as_text = false;
    bool as_number = false;
    size_t chosen = 0;
};

void add_value(candidates &to, const std::string &value)
{
    if (std::ranges::find(to.values, value) == to.values.end())
        to.values.push_back(value);
}

/// The values that the comparison can tell apart: of numbers those around the compared one and
/// around where the difference wraps, of texts the compared one and the next above it. The empty
/// text, which is there for every name, lies below all texts.
void add_values(candidates &to, const condition_item &item)
{
    add_value(to, item.value);
    if (!is_numeric(item)) {
        to.as_text = true;
        add_value(to, item.value + "\x01");
        return;
    }
    to.as_number = true;
    const auto centre = static_cast<uint32_t>(number_of(item.value));
    constexpr uint32_t half = 0x80000000;
    for (const uint32_t distance : {1U, ~0U, half, half + 1, half - 1})
        add_value(to, std::to_string(static_cast<int32_t>(centre + distance)));
}

std::vector<candidates> collect(std::span<const uint8_t> a, std::span<const uint8_t> b)
{
    std::vector<candidates> all;
    for (const auto code : {a, b}) {
        for (const condition_item &item : list_condition(code)) {
            if (!item.comparison || !item.complete)
                continue;
            auto found = std::ranges::find(all, item.name, &candidates::name);
            if (found == all.end())
                found = all.insert(all.end(), candidates{item.name, {}});
            add_values(*found, item);
        }
    }
    for (candidates &name : all)
        add_value(name, "");
    return all;
}

const std::vector<candidates> *tried; // of the look-up function, which is given a name alone

const char *tried_value(const char *name)
{
    const auto found = std::ranges::find(*tried, name, &candidates::name);
    return found == tried->end() ? nullptr : found->values[found->chosen].c_str();
}

bool applies(std::span<const uint8_t> code)
{
    // -1, malformed, counts as met.
    return eval_conditions(code.data(), static_cast<int>(code.size()), tried_value) != 0;
}

/// The next combination; false after the last.
bool advance(std::vector<candidates> &all)
{
    for (candidates &name : all) {
        if (++name.chosen < name.values.size())
            return true;
        name.chosen = 0;
    }
    return false;
}

} // namespace

overlap_result find_overlap(std::span<const uint8_t> a, std::span<const uint8_t> b)
{
    std::vector<candidates> all = collect(a, b);
    const bool complete = std::ranges::none_of(
        all, [](const candidates &name) { return name.as_text && name.as_number; });
    const size_t steps = (a.size() + b.size()) * all.size() + 1;
    const size_t limit = std::min(combination_limit, step_limit / steps + 1);
    tried = &all; // cppcheck-suppress danglingLifetime ; read by applies() below alone
    for (size_t count = 0; count < limit; count++) {
        if (applies(a) && applies(b)) {
            overlap_result result{overlap::some, {}};
            for (const candidates &name : all)
                result.configuration[name.name] = name.values[name.chosen];
            return result;
        }
        if (!advance(all))
            return {complete ? overlap::none : overlap::mixed, {}};
    }
    return {overlap::too_many, {}};
}

} // namespace fwpkg
