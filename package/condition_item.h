// SPDX-License-Identifier: GPL-2.0-or-later
//
// Condition code taken apart: one item after the other, and what a comparison comes to.
//
// Who evaluates code and who explains it walk it with the same function, so that both see the same
// items. docs/package-format.md has the table of codes.
#pragma once

#include <cstdint>

/// The code bytes. A numeric comparison is its text form plus condition_numeric. Any other byte is
/// skipped.
enum condition_code : uint8_t {
    condition_equal = 0,
    condition_greater = 1,
    condition_less = 2,
    condition_greater_equal = 3,
    condition_less_equal = 4,
    condition_not_equal = 5,
    condition_numeric = 8,
    condition_and_not = 16,
    condition_or = 17,
    condition_and = 18,
    condition_open = 19,
    condition_close = 255, ///< at the outermost level the end of the code
};

/// One item of code. The texts lie in the code itself.
struct code_item {
    uint8_t code;
    bool comparison;   ///< has a name and a value
    bool complete;     ///< false: a comparison whose name or value does not end inside the code
    int size;          ///< bytes of the item; of one that is not complete, up to the code's end
    const char *name;  ///< of a complete comparison, NUL-terminated; else null
    const char *value; ///< likewise
};

/// The item at `code`, of which `length` bytes, at least one, are left. The next one begins `size`
/// bytes further on.
code_item read_code_item(const uint8_t *code, int length);

/// Whether the comparison `code` holds between the `answer` of a look-up (null: no value) and the
/// `value` that the item compares with.
bool comparison_holds(uint8_t code, const char *answer, const char *value);
