// SPDX-License-Identifier: GPL-2.0-or-later
//
// The description of one device, a TOML file that the host tools share: simdev makes a simulated
// device of it, fwpkg plans what an upgrade would do to it.
//
//     [partitions]                  # /dev/fla<number> = size in bytes
//     2 = 4194304
//
//     [configuration]               # what the device's system configuration answers
//     WD = "5"
//     VENDOR_KEY_FILE = "vendor.key" # the value of VENDOR_KEY is what this file holds
//
//     [requirements]                # part type = condition on the features of such a part
//     kernel = "ram:<=64"
//
//     [script]                      # the network-stop script, each key optional
//     present = true                # whether the device has one
//     status = 0                    # its exit status, 0 to 255
//     seconds = 1                   # how long it takes; may be a fraction
//
// VENDOR_KEY_FILE is relative to the description and no key of the device's: a key need not stand
// in a file that is under version control. Each table is optional; an unknown table or key, a wrong
// type and a value out of its range are errors.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

struct device_script {
    bool present = true;
    int status = 0;
    double seconds = 0;
};

struct device {
    std::map<int, uint64_t> partitions; ///< 0 to 9 -> bytes, at least 16 (the trailer's size)
    std::map<std::string, std::string> configuration; ///< key -> value, both without line breaks
    std::map<std::string, std::string> requirements;  ///< part type name -> condition text
    device_script script;
};

/// Whether the file that VENDOR_KEY_FILE names is read, or VENDOR_KEY is left unset.
enum class key_files { read, left };

/// The text of the description in the file `path`, of at most 1 MiB. Throws failure
/// (tools/common/failure.h).
std::string read_description(const std::filesystem::path &path);

/// The description in the file `path`. Throws failure, with "FILE:LINE: what is wrong" where it has
/// a mistake.
device read_device(const std::filesystem::path &path, key_files keys = key_files::read);

/// The description in `text`; `name` stands for the file in errors and where other files are looked
/// for. Throws failure.
device parse_device(std::string_view text, const std::string &name,
                    key_files keys = key_files::read);

/// The environment variable that states the requirement for parts of the type called `type_name`.
std::string requirement_variable(const std::string &type_name);

/// The description, with comments, of the device that is taken when none is given: a kernel
/// partition of 4 MiB, base and app of 8 MiB each, the watchdog on line 5.
extern const std::string_view default_device_text;
