// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/conditions.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "package/package.h"
#include "platform/number.h"

namespace {

constexpr int requirement_capacity = 1024; // bytes of a variable's name, and of its compiled text

bool is_comparison(uint8_t code)
{
    return (code & ~condition_numeric) <= condition_not_equal;
}

// A number as conditions mean it: automatic base, 0 without a text or digits.
int32_t number_of(const char *text)
{
    return text == nullptr ? 0 : number_from_text(text, 0, nullptr);
}

bool compare(uint8_t code, const char *answer, const char *value)
{
    int32_t difference = 0;
    if ((code & condition_numeric) != 0) {
        // Wraps around: numbers further apart than 32 bits compare inverted, as they always did.
        difference = static_cast<int32_t>(static_cast<uint32_t>(number_of(answer)) -
                                          static_cast<uint32_t>(number_of(value)));
    } else {
        difference = strcmp(answer == nullptr ? "" : answer, value);
    }
    switch (code & ~condition_numeric) {
    case condition_equal:
        return difference == 0;
    case condition_greater:
        return difference > 0;
    case condition_less:
        return difference < 0;
    case condition_greater_equal:
        return difference >= 0;
    case condition_less_equal:
        return difference <= 0;
    default:
        return difference != 0;
    }
}

// One item of the code: a comparison with its outcome, an operator, or the begin or end of a group.
struct condition_item {
    uint8_t code;
    bool outcome;    // of a comparison
    uint8_t results; // see evaluate_items
    int32_t match;   // of a begin: the item that ends the group, -1 for none
};

// Evaluates the comparison at `*position` and steps behind it: 0 or 1, or -1 when it does not end
// before the code does.
int evaluate_comparison(const uint8_t *code, int length, int *position, condition_lookup lookup)
{
    const char *name = reinterpret_cast<const char *>(code) + *position + 1;
    const char *end = reinterpret_cast<const char *>(code) + length;
    const void *name_end = memchr(name, '\0', static_cast<size_t>(end - name));
    if (name_end == nullptr)
        return -1;
    const char *value = static_cast<const char *>(name_end) + 1;
    const void *value_end = memchr(value, '\0', static_cast<size_t>(end - value));
    if (value_end == nullptr)
        return -1;
    const bool outcome = compare(code[*position], lookup(name), value);
    *position = static_cast<int>(static_cast<const uint8_t *>(value_end) + 1 - code);
    return outcome ? 1 : 0;
}

// Splits the code into items up to the end of the outermost level, and evaluates each comparison
// once, in order. The number of items, or -1 when a comparison is not complete: nothing is skipped
// in an evaluation, so it would be met. `end` as in eval_conds.
int read_items(const uint8_t *code, int length, const uint8_t **end, condition_lookup lookup,
               condition_item *items)
{
    int count = 0;
    int innermost = -1; // open group; `match` links it to the one around it until it is closed
    for (int position = 0; position < length;) {
        condition_item item = {.code = code[position], .outcome = false, .results = 0, .match = -1};
        if (is_comparison(item.code)) {
            const int outcome = evaluate_comparison(code, length, &position, lookup);
            if (outcome < 0)
                return -1;
            item.outcome = outcome != 0;
        } else {
            position++;
        }
        if (item.code == condition_open) {
            item.match = innermost;
            innermost = count;
        } else if (item.code == condition_close && innermost >= 0) {
            innermost = std::exchange(items[innermost].match, count);
        } else if (item.code == condition_close) {
            if (end != nullptr)
                *end = code + position;
            break;
        }
        items[count++] = item;
    }
    while (innermost >= 0)
        innermost = std::exchange(items[innermost].match, -1);
    return count;
}

// Where an evaluation stands: the accumulator in bit 0, the pending operator above it.
enum evaluation_state : int {
    state_and = 0,
    state_or = 2,
    state_and_not = 4,
    state_count = 6,
    state_start = 1, // "and" with the accumulator set
};

int state_of(evaluation_state pending, bool accumulator)
{
    return pending | (accumulator ? 1 : 0);
}

bool combine(int state, bool result)
{
    const bool accumulator = (state & 1) != 0;
    switch (state & ~1) {
    case state_or:
        return accumulator || result;
    case state_and_not:
        return accumulator && !result;
    default:
        return accumulator && result;
    }
}

// The item at which a level goes on after `item` at `index`, and the state it has there.
int next_state(const condition_item *items, int index, int state, int *next)
{
    const condition_item *item = &items[index];
    const bool accumulator = (state & 1) != 0;
    *next = index + 1;
    switch (item->code) {
    case condition_and:
        return state_of(state_and, accumulator);
    case condition_or:
        return state_of(state_or, accumulator);
    case condition_and_not:
        return state_of(state_and_not, accumulator);
    case condition_open:
        // A group without its end is evaluated up to the end of the code, and the level around it
        // then evaluates the same items again.
        if (item->match >= 0)
            *next = item->match + 1;
        return state_of(state_and,
                        combine(state, (items[index + 1].results >> state_start & 1) != 0));
    default:
        if (is_comparison(item->code))
            return state_of(state_and, combine(state, item->outcome));
        return state; // a code without a meaning
    }
}

// Evaluates from the last item to the first, so that neither nesting nor groups left open cost more
// than the length. Bit s of an item's `results` is what its level comes to when it is reached in
// state s. `items` has one item more than `count`, for the end.
bool evaluate_items(condition_item *items, int count)
{
    items[count] = {.code = condition_close, .outcome = false, .results = 0, .match = -1};
    for (int index = count; index >= 0; index--) {
        unsigned results = 0;
        for (int state = 0; state < state_count; state++) {
            bool result = (state & 1) != 0;
            if (items[index].code != condition_close) {
                int next = 0;
                const int reached = next_state(items, index, state, &next);
                result = (items[next].results >> reached & 1) != 0;
            }
            results |= (result ? 1U : 0U) << state;
        }
        items[index].results = static_cast<uint8_t>(results);
    }
    return (items[0].results >> state_start & 1) != 0;
}

} // namespace

int eval_conditions(const uint8_t *code, int length, condition_lookup lookup)
{
    return eval_conds(code, length, nullptr, lookup);
}

int eval_conds(const uint8_t *code, int length, const uint8_t **end, condition_lookup lookup)
{
    if (length <= 0)
        return 1;
    auto *items = static_cast<condition_item *>(
        calloc(static_cast<size_t>(length) + 1, sizeof(condition_item)));
    if (items == nullptr)
        return -1;
    const int count = read_items(code, length, end, lookup, items);
    const int result = count < 0 ? -1 : (evaluate_items(items, count) ? 1 : 0);
    free(items);
    return result;
}

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the established names
const uint8_t *_feature_set = nullptr;
int _feature_set_size = 0;
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

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
