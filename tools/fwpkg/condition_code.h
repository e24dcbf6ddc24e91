// SPDX-License-Identifier: GPL-2.0-or-later
//
// Condition texts and condition code, for people: where a text does not compile, what the code's
// items are, and the code as text again. The language is the device's (package/conditions.h);
// nothing here decides whether a condition holds.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace fwpkg {

/// Compiles `text` with the device's compiler. A text that does not compile is thrown as a failure
/// that begins with `place` and names the column (from 1) from which on it cannot be read.
std::vector<uint8_t> compile_condition(const std::string &text, const std::string &place);

/// One item of condition code.
struct condition_item {
    int position; ///< of the code byte
    int length;   ///< bytes of the item
    uint8_t code;
    bool comparison; ///< has a name and a value
    bool complete;   ///< false for a comparison whose name or value runs out of the code
    std::string name;
    std::string value;
};

/// The items in order up to the end of the code or the first incomplete comparison, which is the
/// last item then. Items behind the closing byte that ends the condition are included.
std::vector<condition_item> list_condition(std::span<const uint8_t> code);

/// The index of the first item that the device does not look at: the one behind the closing byte
/// that ends the condition, else the number of items.
size_t reached_items(const std::vector<condition_item> &items);

/// True when the item is a numeric comparison.
bool is_numeric(const condition_item &item);

/// A value as the device's numeric comparisons have it: up to what is no digit, saturated.
int32_t number_of(const std::string &value);

/// The operator as text, such as "=" or ":>=".
std::string operator_text(uint8_t code);

/// One item as text: "ram:>=64", "&", ")". What no text can give is shown with `\xNN`, and an empty
/// name or value with `\0`.
std::string item_text(const condition_item &item);

/// A condition as text.
struct condition_text {
    std::string text;
    bool exact;    ///< compiles to the same bytes
    bool writable; ///< that or, where it has escapes, the text with the bytes for which they stand
};

/// The text for `code`; empty for no code.
condition_text decompile_condition(std::span<const uint8_t> code);

/// Whether one comparison holds when its name has the value `actual` (none: the name is unknown),
/// as the device's evaluator says.
bool comparison_holds(const condition_item &item, const std::optional<std::string> &actual);

} // namespace fwpkg
