// SPDX-License-Identifier: GPL-2.0-or-later
//
// For users of the library; the program does not: form texts (application/x-www-form-urlencoded)
// and blocks of headers. Requests with variables escape them here; the program's have none.
#pragma once

struct httpc_client;

// NOLINTBEGIN(bugprone-reserved-identifier): the library's own names
// begin with an underscore.

/// 1 for letters, digits, ".", "_" and "-", else 0.
int _safe_char(char byte);

/// Escapes `source`: a space becomes "+", an unsafe byte "%" and two upper-case hexadecimal digits.
/// The bytes written, no terminator among them; -1 when `size` does not hold them and one more.
int _encode_string(const char *source, char *destination, int size);

/// Writes name=value, both escaped, without a terminator; its length, or -1. `destination` has
/// 2 * `size` + 1 bytes.
int _encode_content(const char *name, const char *value, char *destination, int size);

/// Appends a pair to the text in `buffer` (`size` bytes, zeroed behind the text), behind a "&"
/// unless it is the first; the text's new length. -1 with a diagnostic and the buffer unchanged
/// when the pair and a terminator do not fit.
int _encode_contents(const char *name, const char *value, char *buffer, int size);

/// Adds the "name: value" lines of `text` to the headers, names cut to 31 characters and values to
/// 63. A line without a ":" ends the walk.
void _httpc_parse_headers(httpc_client *client, const char *text);

/// Decodes form text into `out`, which has room for as much as `text` and a terminator.
void _httpc_parse_content(char *out, const char *text);

// NOLINTEND(bugprone-reserved-identifier)
