// SPDX-License-Identifier: GPL-2.0-or-later
//
// The hardware watchdog, fed through the GPIO device by toggling a line.
#pragma once

#include "upgrade/context.h"

/// Fills the record: the line from the system configuration's "WD", -1 when that is not set; level
/// 0.
void read_watchdog_setting(watchdog_record *record);

/// One kick: opens /dev/gpio, hands the record to request 1, toggles the level whatever came of it,
/// closes. A failure is one line on standard error, and a kick is made even for line -1: the GPIO
/// driver judges the line.
void kick_watchdog(watchdog_record *record);
