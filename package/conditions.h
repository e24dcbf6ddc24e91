// SPDX-License-Identifier: GPL-2.0-or-later
//
// The condition language: which device a part is for, and which parts a device takes.
//
// A text such as `ram:>=64 & board=rev2` is compiled to condition code, a byte sequence that a
// package carries; evaluating it asks a look-up function for each name. docs/package-format.md has
// the language and the code. It has no precedence: operators apply from left to right, one is
// pending at a time and the last one wins, and two comparisons with nothing between them are joined
// by "and".
#pragma once

#include <cstdint>

#include "package/condition_item.h"
#include "package/format.h"

/// No package can open more groups: its code lies in the first block, behind header and entry.
constexpr int condition_depth_limit = package_block_size;

/// The value of `name`, NUL-terminated, or null when it has none; valid until the next call.
using condition_lookup = const char *(*)(const char *name);

/// Compiles `text` into at most `capacity` bytes at `code` and returns their number (at least 1),
/// or -1 when the text is malformed or the code does not fit. The text is taken apart in place: the
/// ends of names and values are overwritten with NUL, also when it turns out malformed.
int build_conditions(char *text, uint8_t *code, int capacity);

/// Evaluates `length` bytes of code: 1 when the condition holds, 0 when not, -1 when a comparison
/// is not complete before the end of the code. Code of length 0 holds. The upgrade takes -1 for a
/// condition that is met. No memory but the stack is used.
int eval_conditions(const uint8_t *code, int length, condition_lookup lookup);

/// Evaluates up to the closing byte of the group that `code` begins in, as eval_conditions does,
/// and stores the position just behind that byte at `end` if that is not null. `end` keeps what it
/// had when the code ends without a closing byte.
///
/// A group without its closing byte runs to the end of the code, and the level around it then
/// evaluates the same bytes again from the group's start. Each comparison asks `lookup` once all
/// the same, in the order of the code; time is linear in `length`, and the stack does not grow.
/// Code with more than condition_depth_limit groups open at once is not met (0).
int eval_conds(const uint8_t *code, int length, const uint8_t **end, condition_lookup lookup);

/// The feature set that get_feature looks in: `_feature_set_size` bytes of NUL-terminated names and
/// values in turn. A look-up function takes a name alone, so the set has to be found elsewhere.
/// Null outside an evaluation, but for a requirement that did not compile: it leaves its set to the
/// next.
// NOLINTBEGIN(bugprone-reserved-identifier): the established names
extern const uint8_t *_feature_set;
extern int _feature_set_size;
// NOLINTEND(bugprone-reserved-identifier)

/// The value of the first feature called `name` (case counts), or null: without a set, without such
/// a feature, or where the set's last string does not end inside it.
const char *get_feature(const char *name);

/// Evaluates the device's requirement for parts of `type`, the environment variable
/// "<type name>_features", against a part's feature set. 1 when it is not set, 0 for a type above 8
/// or a text that does not compile, else as eval_conditions.
///
/// The variable's text is compiled where it stands in the environment, and so used up: a second
/// part of the same type finds the rest of it, fails to compile it and is refused, unless the text
/// held no comparison. Kept: with a copy, packages with two parts of a type that devices refuse
/// today would be taken.
int eval_features(uint32_t type, const uint8_t *features, int length);
