// SPDX-License-Identifier: GPL-2.0-or-later
//
// The hardware watchdog, the GPIO device that takes its kicks, and the other ends that a device
// comes to without its program.
#pragma once

#include <cstdint>

/// How a program ends when the device does, in place of its own exit status.
enum sim_end : int {
    sim_end_power_cut = 100, ///< a "cut" fault
    sim_end_reset = 101,     ///< the watchdog was not fed
    sim_end_hang = 102,      ///< it would have waited for ever, or a day of virtual time has passed
};

/// Not fed since the clock's start. Times out as the "watchdog" fault says; without one, never.
void watchdog_start();

/// Contract of ioctl. A kick for a line that is none (below 0) is answered as any other and feeds
/// nothing.
int sim_ioctl(int fd, unsigned long request, void *argument);

/// Moves virtual time on; ends the program when that starves the watchdog or lasts a day. Without
/// fast mode real time starves it as well: that of the script and of transfers, too. 0 looks only.
void advance(int64_t microseconds);

/// The same for time that is waited: really, too, without fast mode, as long as the watchdog lets
/// it.
void spend(int64_t microseconds);

/// Real microseconds after which the watchdog resets the device; INT64_MAX without one, and in fast
/// mode.
int64_t watchdog_left_us();

/// For a call that would wait for ever: resets by the watchdog if there is one, or ends. `fault` is
/// the index of the fault that is the reason, or -1.
[[noreturn]] void hang(int fault);

/// Ends the program as a cut of the power in fault number `fault`.
[[noreturn]] void cut_power(int fault);
