// SPDX-License-Identifier: GPL-2.0-or-later
//
// Deciphering the package in the block buffer, in place, and whether the device takes it at all.
#pragma once

#include "download/iobuf.h"
#include "package/package.h"

/// Makes the package usable. 0 when it was deciphered, or is in clear and the device takes that; -1
/// when it is refused: in clear although "VENDOR_KEY" is set and not empty (no message; "VENID"
/// does not count here), enciphered without a key, or of an unknown encryption (no message).
/// `context` is handed on.
int decrypt_package(void *context, const package *record, iobuf *buffer);

/// Deciphers with the text of "VENDOR_KEY", else of "VENID"; a key that is set but empty is used. 0
/// when done, and also when the package's length is wrong: it is then left as it is, and the check
/// that follows refuses it. -1 without a key, or when blocks cannot be made writable and sealed
/// again. Names the key on standard error, see docs/security.md. `context` is
/// not used.
int decrypt_venid_rc4(void *context, const package *record, iobuf *buffer);

/// Applies the cipher with the text `key`, in silence and in either direction: the maker of
/// packages enciphers with it. 0, or -1 when blocks cannot be made writable and sealed again. The
/// package's length is what the buffer holds.
int cipher_package(const package *record, iobuf *buffer, const char *key);
