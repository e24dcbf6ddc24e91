// SPDX-License-Identifier: GPL-2.0-or-later
//
// Parsing TOML that somebody else wrote.
#pragma once

#include <string_view>

#include <toml++/toml.h>

/// As toml::parse, but throws toml::parse_error also for a text with more dots than any file needs:
/// the parser nests a table for each dot of a key, and takes them apart by recursion until the
/// stack ends.
inline toml::table parse_toml(std::string_view text)
{
    constexpr int dot_limit = 10'000; // a third of what the usual stack bears
    toml::source_position position{1, 1};
    for (int dots = 0; const char byte : text) {
        if (byte == '\n')
            position.line++;
        if (byte == '.' && ++dots > dot_limit)
            throw toml::parse_error("more than 10000 dots in the file", position);
    }
    return toml::parse(text);
}
