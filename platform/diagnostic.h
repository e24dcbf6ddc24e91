// SPDX-License-Identifier: GPL-2.0-or-later
//
// Diagnostics of the download and HTTP code: a line on standard error that begins with the place it
// comes from, "UNIT:FUNCTION:NUMBER: ".
//
// Where readers of logs know a message by its number, the number is a fixed text: a unit has its
// places with their numbers together, and a change of its source changes none of them. Everywhere
// else the number is the source line, of the place that failed and not of a helper that says so.
#pragma once

#include <cstdint>

/// The units by the names that readers of logs know, not the files'.
enum diagnostic_unit : int32_t {
    diagnostic_cprotocol, ///< "cprotocol.c"
    diagnostic_ftp,       ///< "ftp.c"
    diagnostic_http_priv, ///< "http-priv.c"
    diagnostic_httpc,     ///< "httpc.c"
    diagnostic_sslcli,    ///< "sslcli.c"
    diagnostic_tftp,      ///< "tftp.c"
    diagnostic_unit_count,
};

/// Small enough for registers: a diagnostic costs its caller few bytes of the program.
struct diagnostic_place {
    diagnostic_unit unit;
    int32_t number;
    const char *function;
};
static_assert(sizeof(diagnostic_place) <= 2 * sizeof(uint64_t));

/// The place of the call itself: its function and its source line.
constexpr diagnostic_place diagnostic_here(diagnostic_unit unit,
                                           const char *function = __builtin_FUNCTION(),
                                           int line = __builtin_LINE())
{
    return {.unit = unit, .number = line, .function = function};
}

/// "ftp.c" and so on.
const char *diagnostic_unit_name(diagnostic_unit unit);

/// Prints "UNIT:FUNCTION:NUMBER: " and what `format` makes of the other arguments. The newline is
/// the format's: some messages are known without one. `errno` stays as it was.
[[gnu::format(printf, 2, 3)]] void diagnose(diagnostic_place place, const char *format, ...);

/// Prints "UNIT:FUNCTION:line NUMBER:recv error:" with the text of `errno` and a newline: the HTTP
/// library's line for everything that went wrong. `errno` stays as it was.
void diagnose_recv(diagnostic_place place);
