// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/conditions.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "package/package.h"

namespace {

constexpr int requirement_capacity = 1024; // bytes of a variable's name, and of its compiled text

// Plain char is signed on some machines; the character classes want 0 to 255.
bool is_space(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

bool is_name_start(char c)
{
    return isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
}

bool is_name_part(char c)
{
    return isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-';
}

char *skip_space(char *text)
{
    while (is_space(*text))
        text++;
    return text;
}

// Where compiled bytes go. A byte that does not fit marks the output as full.
struct code_output {
    uint8_t *bytes;
    int capacity;
    int length;
    bool full;
};

void emit(code_output *output, uint8_t byte)
{
    if (output->length >= output->capacity) {
        output->full = true;
        return;
    }
    output->bytes[output->length++] = byte;
}

void emit_text(code_output *output, const char *text)
{
    do {
        emit(output, static_cast<uint8_t>(*text));
    } while (*text++ != '\0');
}

// The code of the one-character token `c`, or -1 when it begins something else.
int token_code(char c)
{
    switch (c) {
    case '!':
        return condition_and_not;
    case '|':
        return condition_or;
    case '&':
        return condition_and;
    case '(':
        return condition_open;
    case ')':
        return condition_close;
    default:
        return -1;
    }
}

// Reads the comparison operator at `*text`, overwrites its first character with NUL, which ends the
// name before it, and steps behind it. Its code, or -1. There is no "==": the value begins with the
// second "=".
int take_operator(char **text)
{
    char *at = *text;
    const bool with_equal = at[0] != '\0' && at[1] == '=';
    int code = -1;
    int size = 1;
    if (at[0] == '=') {
        code = condition_equal;
    } else if (at[0] == '>') {
        code = with_equal ? condition_greater_equal : condition_greater;
        size += with_equal ? 1 : 0;
    } else if (at[0] == '<') {
        code = with_equal ? condition_less_equal : condition_less;
        size += with_equal ? 1 : 0;
    } else if (at[0] == '!' && with_equal) {
        code = condition_not_equal;
        size = 2;
    }
    if (code < 0)
        return -1;
    at[0] = '\0';
    *text = at + size;
    return code;
}

// Ends the value at `*text` with NUL and steps behind it. Returns its start, or null without the
// closing quote. The opening quote stays in the value: packages in the field compare with it.
char *take_value(char **text)
{
    char *value = *text;
    char *end = value;
    if (*value == '"' || *value == '\'') {
        end = strchr(value + 1, *value);
        if (end == nullptr)
            return nullptr;
    } else {
        while (*end != '\0' && !is_space(*end))
            end++;
    }
    *text = *end == '\0' ? end : end + 1;
    *end = '\0';
    return value;
}

// Compiles the comparison at `*text` and steps behind it. False when it is malformed.
bool build_comparison(char **text, code_output *output)
{
    char *at = *text;
    const char *name = at;
    if (!is_name_start(*at))
        return false;
    while (is_name_part(*at))
        at++;
    if (is_space(*at)) {
        *at = '\0';
        at = skip_space(at + 1);
    }
    int numeric = 0;
    if (*at == ':') {
        *at++ = '\0';
        numeric = condition_numeric;
    }
    const int code = take_operator(&at);
    if (code < 0)
        return false;
    at = skip_space(at);
    const char *value = take_value(&at);
    if (value == nullptr)
        return false;
    emit(output, static_cast<uint8_t>(code + numeric));
    emit_text(output, name);
    emit_text(output, value);
    *text = at;
    return true;
}

bool is_comparison(uint8_t code)
{
    return (code & ~condition_numeric) <= condition_not_equal;
}

// A number as the device reads it: automatic base, 0 without digits, saturated at 32 bits.
int32_t number_of(const char *text)
{
    if (text == nullptr)
        return 0;
    const long long value = strtoll(text, nullptr, 0);
    return static_cast<int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
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

// What is known of the item that begins at one byte of the code.
struct item_result {
    bool evaluated;
    bool outcome;
    int32_t next; // where the level around the item goes on
};

// One level of grouping under evaluation.
struct group_level {
    int32_t open;     // position of its opening byte, -1 at the outermost level
    int32_t position; // next byte to read
    uint8_t pending;  // operator for the next item
    bool accumulator; // result of the items so far
};

struct evaluation {
    const uint8_t *code;
    int length;
    condition_lookup lookup;
    item_result *items;  // one for each byte of the code
    group_level *levels; // as many as there can be, the outermost first
};

// Evaluates the comparison at `position`. False when it does not end before the code does.
bool evaluate_comparison(evaluation *run, int position)
{
    const auto *name = reinterpret_cast<const char *>(run->code) + position + 1;
    const char *end = reinterpret_cast<const char *>(run->code) + run->length;
    const void *name_end = memchr(name, '\0', static_cast<size_t>(end - name));
    if (name_end == nullptr)
        return false;
    const char *value = static_cast<const char *>(name_end) + 1;
    const void *value_end = memchr(value, '\0', static_cast<size_t>(end - value));
    if (value_end == nullptr)
        return false;
    item_result *item = &run->items[position];
    item->evaluated = true;
    item->outcome = compare(run->code[position], run->lookup(name), value);
    item->next = static_cast<int32_t>(static_cast<const uint8_t *>(value_end) + 1 - run->code);
    return true;
}

void combine(group_level *level, const item_result *item)
{
    switch (level->pending) {
    case condition_or:
        level->accumulator = level->accumulator || item->outcome;
        break;
    case condition_and_not:
        level->accumulator = level->accumulator && !item->outcome;
        break;
    default:
        level->accumulator = level->accumulator && item->outcome;
        break;
    }
    level->pending = condition_and;
    level->position = item->next;
}

group_level level_at(int open)
{
    return {.open = open, .position = open + 1, .pending = condition_and, .accumulator = true};
}

// Takes the next step in the innermost level. 1 when that level is at its end, 0 to go on, -1 when
// the code is malformed. A group whose result is not known yet is entered through `depth`.
int step(evaluation *run, int *depth)
{
    group_level *level = &run->levels[*depth];
    if (level->position >= run->length)
        return 1;
    const uint8_t code = run->code[level->position];
    if (code == condition_close)
        return 1;
    if (code == condition_open || is_comparison(code)) {
        item_result *item = &run->items[level->position];
        if (!item->evaluated && code == condition_open) {
            run->levels[++*depth] = level_at(level->position);
            return 0;
        }
        if (!item->evaluated && !evaluate_comparison(run, level->position))
            return -1;
        combine(level, item);
        return 0;
    }
    if (code == condition_and_not || code == condition_or || code == condition_and)
        level->pending = code;
    level->position++;
    return 0;
}

// Stores the result of the finished innermost group; the level around it then finds it.
void leave_group(evaluation *run, int *depth)
{
    const group_level *level = &run->levels[(*depth)--];
    const bool closed = level->position < run->length;
    run->items[level->open] = {
        .evaluated = true,
        .outcome = level->accumulator,
        // Without its closing byte the level around the group evaluates the same bytes once more.
        .next = closed ? level->position + 1 : level->open + 1,
    };
}

int evaluate(evaluation *run, const uint8_t **end)
{
    int depth = 0;
    run->levels[0] = level_at(-1);
    // Ends: each step moves a level on, enters a group that has no result yet, or stores one.
    for (;;) {
        const int state = step(run, &depth);
        if (state < 0)
            return -1;
        if (state == 0)
            continue;
        if (depth == 0)
            break;
        leave_group(run, &depth);
    }
    const group_level *level = &run->levels[0];
    if (level->position < run->length && end != nullptr)
        *end = run->code + level->position + 1;
    return level->accumulator ? 1 : 0;
}

} // namespace

int build_conditions(char *text, uint8_t *code, int capacity)
{
    code_output output = {.bytes = code, .capacity = capacity, .length = 0, .full = false};
    for (char *at = skip_space(text); *at != '\0'; at = skip_space(at)) {
        const int token = token_code(*at);
        if (token >= 0) {
            emit(&output, static_cast<uint8_t>(token));
            at++;
        } else if (!build_comparison(&at, &output)) {
            return -1;
        }
    }
    emit(&output, condition_close);
    return output.full ? -1 : output.length;
}

int eval_conditions(const uint8_t *code, int length, condition_lookup lookup)
{
    return eval_conds(code, length, nullptr, lookup);
}

int eval_conds(const uint8_t *code, int length, const uint8_t **end, condition_lookup lookup)
{
    if (length <= 0)
        return 1;
    const auto count = static_cast<size_t>(length);
    auto *items = static_cast<item_result *>(calloc(count, sizeof(item_result)));
    auto *levels = static_cast<group_level *>(calloc(count + 1, sizeof(group_level)));
    int result = -1;
    if (items != nullptr && levels != nullptr) {
        evaluation run = {
            .code = code, .length = length, .lookup = lookup, .items = items, .levels = levels};
        result = evaluate(&run, end);
    }
    free(levels);
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
