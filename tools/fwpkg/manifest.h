// SPDX-License-Identifier: GPL-2.0-or-later
//
// The manifest of a package, a TOML file: what goes into it, and for which devices.
//
//     [package]
//     encrypt = true            # default false; needs a key
//
//     [[part]]                  # one for each part, at most eight
//     type = "kernel"           # a part type's name, or a number from 0 to 255
//     file = "zImage"           # relative to the manifest
//     actual_size = 1500000     # bytes needed on the flash partition; default: the file's size
//     optional = true           # default false
//     compress = 0              # 0 to 255, default 0
//     conditions = "ram:>=64"   # which devices it is for; default: all
//     features = { ram = "64" } # what a device's requirement can ask about; default: none
//
// An unknown key, a wrong type and a value out of its range are errors.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace fwpkg {

struct manifest_part {
    std::string place;          ///< "FILE:LINE: part N", for errors
    int type = 0;               ///< 0 to 255
    std::filesystem::path file; ///< as it can be opened
    std::optional<uint32_t> actual_size;
    bool optional = false;
    uint8_t compress = 0;
    std::optional<std::string> conditions;
    std::map<std::string, std::string> features; ///< in the order in which they are written
};

struct manifest {
    std::string name; ///< the manifest's file, for errors
    bool encrypt = false;
    std::vector<manifest_part> parts; ///< one to eight
};

/// The manifest in the file `path`; the parts' files are not looked at. Throws failure.
manifest read_manifest(const std::filesystem::path &path);

} // namespace fwpkg
