// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/condition_item.h"

#include <cstring>

#include "platform/number.h"

namespace {

bool is_comparison(uint8_t code)
{
    return (code & ~condition_numeric) <= condition_not_equal;
}

// A number as conditions mean it: automatic base, 0 without a text or digits.
int32_t number_of(const char *text)
{
    return text == nullptr ? 0 : number_from_text(text, 0, nullptr);
}

// The byte behind the NUL that ends the text at `text`; null when there is none before `end`.
const char *behind_text(const char *text, const char *end)
{
    const void *terminator = memchr(text, '\0', static_cast<size_t>(end - text));
    return terminator == nullptr ? nullptr : static_cast<const char *>(terminator) + 1;
}

} // namespace

code_item read_code_item(const uint8_t *code, int length)
{
    code_item item = {.code = *code,
                      .comparison = is_comparison(*code),
                      .complete = true,
                      .size = 1,
                      .name = nullptr,
                      .value = nullptr};
    if (!item.comparison)
        return item;
    const auto *begin = reinterpret_cast<const char *>(code);
    const char *value = behind_text(begin + 1, begin + length);
    const char *behind = value == nullptr ? nullptr : behind_text(value, begin + length);
    item.complete = behind != nullptr;
    item.size = item.complete ? static_cast<int>(behind - begin) : length;
    if (item.complete) {
        item.name = begin + 1;
        item.value = value;
    }
    return item;
}

bool comparison_holds(uint8_t code, const char *answer, const char *value)
{
    int32_t difference = 0;
    if ((code & condition_numeric) != 0) {
        // Kept: it wraps around, so numbers further apart than 32 bits compare inverted.
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
