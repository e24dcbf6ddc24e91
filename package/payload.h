// SPDX-License-Identifier: GPL-2.0-or-later
//
// The payload of a package: what is enciphered and digested, everything behind the header, as it
// lies in the block buffer.
//
// It goes from byte 28 to the end of the first block whatever the package's size, then through the
// following blocks up to the size. A package shorter than a block is therefore deciphered and
// digested together with the zero bytes behind it; makers of packages do the same.
#pragma once

#include "download/iobuf.h"
#include "package/package.h"

/// Told the payload piece by piece, in order; `state` is what walk_payload was given.
using visit_bytes = void (*)(void *state, uint8_t *bytes, int length);

/// Hands the payload to `visit`. The package's length is what the buffer holds.
void walk_payload(const package *record, const iobuf *buffer, visit_bytes visit, void *state);

/// Whether the header's length is what was downloaded; if not, with one line on standard error.
bool package_length_is_right(const package *record, const iobuf *buffer);
