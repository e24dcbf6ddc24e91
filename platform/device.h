// SPDX-License-Identifier: GPL-2.0-or-later
//
// The device's interface, as the program finds it and everything that plays a device offers it:
// flash partitions, the GPIO device with the watchdog behind it, the receivers of status datagrams,
// the script that stops networking, the CA file. The names are the device's; nothing here is
// chosen.
#pragma once

#include <cstddef>
#include <cstdint>

/// A flash partition's device is this and one character.
constexpr char partition_prefix[] = "/dev/fla";

/// A device name with its terminating NUL.
struct partition_name {
    char text[sizeof partition_prefix + 1];
};

/// The device of partition `number`: the prefix and one character, whose code is that of '0' plus
/// the low byte of `number`, so that 0 to 9 give the digits.
constexpr partition_name partition_device(int32_t number)
{
    partition_name name = {};
    for (size_t i = 0; i < sizeof partition_prefix - 1; i++)
        name.text[i] = partition_prefix[i];
    name.text[sizeof partition_prefix - 1] = static_cast<char>('0' + (number & 0xFF));
    return name;
}

constexpr char gpio_device[] = "/dev/gpio";
constexpr unsigned long gpio_request_watchdog = 1; ///< takes the address of a watchdog_record

/// What the GPIO driver is handed with each kick; its layout is the driver's interface.
struct watchdog_record {
    int32_t line;  ///< GPIO line of the watchdog, native byte order; -1 when not configured
    uint8_t level; ///< 0 or 1: the level of the next kick
    uint8_t reserved[3];
};
static_assert(sizeof(watchdog_record) == 8 && offsetof(watchdog_record, level) == 4);

/// Where status datagrams go (docs/status-datagrams.md), in this order: the receiver that follows
/// the upgrade, and the system-configuration service.
constexpr const char *status_receivers[] = {"/tmp/.upgrd_info", "/tmp/.syscfg-server"};

/// What the three kinds of status datagram begin with.
constexpr char status_percentage[] = "UPGRD_PERCENTAGE=";
constexpr char status_stage[] = "UPGRD_STAGE=";
constexpr char status_error[] = "UPGRD_ERROR=";

constexpr char network_stop_script[] = "/etc/rc.d/init.d/network.stop";

/// The certificates that an HTTPS server's is checked against (PEM).
constexpr char ca_file[] = "/usr/etc/ca-cert.pem";
