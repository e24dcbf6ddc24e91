// SPDX-License-Identifier: GPL-2.0-or-later
//
// What somebody meant who mistyped a word.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// " (did you mean "check"?)" with the word of `known` that is nearest to `word`, where one differs
/// by no more than two letters added, left out, changed or swapped, and by less than half of its
/// letters; else the empty text.
std::string near_word_hint(std::string_view word, const std::vector<std::string> &known);
