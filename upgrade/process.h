// SPDX-License-Identifier: GPL-2.0-or-later
//
// Between download and flash: preparing the package.
#pragma once

#include "upgrade/context.h"

/// Prepares the downloaded package in `context`: reads, deciphers, checks and prints it, drops the
/// optional parts that do not apply to this device or do not fit it (both their sizes become 0),
/// makes sure that every block that the flash writer will take was downloaded, and stores the sum
/// of the actual sizes of the rest in `total` (32 bits that wrap around). 0, or -1 when the package
/// is refused, mostly with one line on standard error; a mandatory part whose conditions or
/// features are not met refuses it without one.
int process_package(upgrade_context *context);
