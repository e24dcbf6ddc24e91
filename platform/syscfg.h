// SPDX-License-Identifier: GPL-2.0-or-later
//
// The device's system configuration: short texts by key, kept by a service of the device.
//
// The program asks for "WD" (GPIO line of the watchdog), "VENDOR_KEY" and "VENID" (package key)
// and for every name that a package's conditions mention. This header is the whole interface: a
// device links its own `getsyscfg` in place of the default provider in syscfg.cpp.
#pragma once

/// The value of `key`, NUL-terminated, or null when the key is not set. A key that is set to the
/// empty text gives "" and not null: the package key look-up tells the two apart.
///
/// The text belongs to the provider and stays valid until the next call; callers copy what they
/// keep. `key` is not null.
///
/// The default provider reads lines of KEY=value from /etc/syscfg.conf (CMake cache variable
/// UPGRADE_SYSCFG_FILE) anew at each call: the first line with the key wins, the value is all that
/// follows the first "=" up to the end of the line, "#" begins a comment line. A missing file sets
/// no key. One that is there and cannot be read ends the program with exit status 1 and one line on
/// standard error: "not set" would make a device that has a key take packages in clear.
extern "C" const char *getsyscfg(const char *key);
