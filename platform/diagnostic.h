// SPDX-License-Identifier: GPL-2.0-or-later
//
// Diagnostics of the download and HTTP code: a line on standard error that begins with the place it
// comes from, "UNIT:FUNCTION:NUMBER: ".
//
// Where readers of logs know a message by its number, the number is a fixed text: a unit has its
// places with their numbers together, and a change of its source changes none of them. Everywhere
// else the number is the source line, of the place that failed and not of a helper that says so.
#pragma once

struct diagnostic_place {
    const char *unit; ///< "ftp.c": the name that readers of logs know, not the file's
    const char *function;
    int number;
};

/// The place of the call itself: its function and its source line.
constexpr diagnostic_place diagnostic_here(const char *unit,
                                           const char *function = __builtin_FUNCTION(),
                                           int line = __builtin_LINE())
{
    return {.unit = unit, .function = function, .number = line};
}

/// Prints "UNIT:FUNCTION:NUMBER: " and what `format` makes of the other arguments. The newline is
/// the format's: some messages are known without one. `errno` stays as it was.
[[gnu::format(printf, 2, 3)]] void diagnose(const diagnostic_place &place, const char *format, ...);

/// Prints "UNIT:FUNCTION:line NUMBER:recv error:" with the text of `errno` and a newline: the HTTP
/// library's line for everything that went wrong. `errno` stays as it was.
void diagnose_recv(const diagnostic_place &place);
