// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/conditions.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "package/package.h"

namespace {

constexpr int requirement_capacity = 1024; // bytes of a variable's name, and of its compiled text

// How an evaluation gets along without recursion, with one pass and one look-up a comparison:
//
// A level is what lies between "(" and ")". What it comes to depends on the accumulator that it
// begins with only, so each level is evaluated for both at once: `from[0]` is the accumulator as it
// now stands if the level began with 0, `from[1]` if it began with 1. A closed group began with 1;
// its `from[1]` is the operand of the level around it.
//
// A group that is still open at the end of the code runs to that end, and then the level around it
// goes on behind the "(" and so evaluates the same items again, this time beginning with its own
// accumulator. What that comes to is known, too: it is the group's `from` for that accumulator.
struct level {
    bool from[2];
    uint8_t pending; // operator that awaits its right side
};

constexpr level fresh_level = {.from = {false, true}, .pending = condition_and};

bool combine(uint8_t pending, bool accumulator, bool operand)
{
    switch (pending) {
    case condition_or:
        return accumulator || operand;
    case condition_and_not:
        return accumulator && !operand;
    default:
        return accumulator && operand;
    }
}

void take_operand(level *at, bool operand)
{
    for (bool &accumulator : at->from)
        accumulator = combine(at->pending, accumulator, operand);
    at->pending = condition_and;
}

// What the outermost level comes to when the code ends with `depth` groups open.
bool finish(const level *levels, int depth)
{
    level inner = levels[depth];
    while (depth-- > 0) {
        level outer = levels[depth];
        take_operand(&outer, inner.from[1]);
        for (bool &accumulator : outer.from)
            accumulator = inner.from[accumulator ? 1 : 0];
        inner = outer;
    }
    return inner.from[1];
}

} // namespace

int eval_conditions(const uint8_t *code, int length, condition_lookup lookup)
{
    return eval_conds(code, length, nullptr, lookup);
}

int eval_conds(const uint8_t *code, int length, const uint8_t **end, condition_lookup lookup)
{
    level levels[condition_depth_limit + 1];
    int depth = 0;
    levels[0] = fresh_level;
    for (int position = 0; position < length;) {
        const code_item item = read_code_item(code + position, length - position);
        position += item.size;
        if (item.comparison && !item.complete)
            return -1;
        if (item.comparison) {
            const bool holds = comparison_holds(item.code, lookup(item.name), item.value);
            take_operand(&levels[depth], holds);
        } else if (item.code >= condition_and_not && item.code <= condition_and) {
            levels[depth].pending = item.code;
        } else if (item.code == condition_open) {
            if (depth == condition_depth_limit)
                return 0; // not -1, which would count as met
            levels[++depth] = fresh_level;
        } else if (item.code == condition_close && depth > 0) {
            depth--;
            take_operand(&levels[depth], levels[depth + 1].from[1]);
        } else if (item.code == condition_close) {
            if (end != nullptr)
                *end = code + position;
            break;
        }
    }
    return finish(levels, depth) ? 1 : 0;
}

// NOLINTBEGIN(bugprone-reserved-identifier): the established names
const uint8_t *_feature_set = nullptr;
int _feature_set_size = 0;
// NOLINTEND(bugprone-reserved-identifier)

const char *get_feature(const char *name)
{
    if (_feature_set == nullptr || _feature_set_size <= 0)
        return nullptr;
    const auto *at = reinterpret_cast<const char *>(_feature_set);
    const char *end = at + _feature_set_size;
    while (at < end) {
        const auto *name_end =
            static_cast<const char *>(memchr(at, '\0', static_cast<size_t>(end - at)));
        if (name_end == nullptr)
            return nullptr;
        const char *value = name_end + 1;
        const auto *value_end =
            static_cast<const char *>(memchr(value, '\0', static_cast<size_t>(end - value)));
        if (value_end == nullptr)
            return nullptr;
        if (strcmp(at, name) == 0)
            return value;
        at = value_end + 1;
    }
    return nullptr;
}

int eval_features(uint32_t type, const uint8_t *features, int length)
{
    if (type >= part_type_count)
        return 0;
    // The variable's name and then its compiled text: the name is done with once it was looked up.
    uint8_t buffer[requirement_capacity];
    auto *name = reinterpret_cast<char *>(buffer);
    snprintf(name, sizeof buffer, "%s_features", part_type_names[type]);
    // Compiled in the environment's own storage, without a copy, on purpose: see the header.
    char *text = getenv(name);
    if (text == nullptr)
        return 1;
    _feature_set = features;
    _feature_set_size = length;
    const int code_length = build_conditions(text, buffer, requirement_capacity);
    if (code_length < 0)
        return 0;
    const int result = eval_conditions(buffer, code_length, get_feature);
    _feature_set = nullptr;
    _feature_set_size = 0;
    return result;
}
