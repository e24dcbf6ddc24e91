// SPDX-License-Identifier: GPL-2.0-or-later
//
// How whatever takes long tells its progress: downloads and the flash writer alike.
#pragma once

/// Told after every piece how many bytes were just stored, written or compared (signed, more than 0
/// as a rule), with the argument that came with the callback. A result of 0 or less asks to stop.
using progress_callback = int (*)(void *argument, int count);
