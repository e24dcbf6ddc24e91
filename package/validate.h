// SPDX-License-Identifier: GPL-2.0-or-later
//
// Length and digest of the deciphered package.
#pragma once

#include "download/iobuf.h"
#include "package/package.h"

/// Stores the 16 bytes of the digest of the blocks as they stand at `digest`. The package's length
/// is what the buffer holds.
void digest_package(const package *record, const iobuf *buffer, uint8_t *digest);

/// 1 when the length is what was downloaded and the digest of the deciphered bytes is the header's,
/// else 0 with one line on standard error. `context` is not used.
int valid_package(void *context, const package *record, const iobuf *buffer);
