// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the user asked for, and the files that the command line names, read for the commands.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/fwpkg/finding.h"
#include "tools/fwpkg/package_file.h"
#include "tools/fwpkg/planner.h"

namespace fwpkg {

/// Whatever a command line can say; each command looks at its own.
struct command_options {
    std::filesystem::path file;   ///< the manifest of `make`, else the package; "-": standard input
    std::filesystem::path after;  ///< the second package of `diff`
    std::filesystem::path output; ///< the package of `make`, the folder of `extract`
    std::filesystem::path key_file;       ///< empty for none
    std::filesystem::path key_file_after; ///< of the second package of `diff`; empty: the same key
    std::vector<std::filesystem::path> devices;
    std::string condition;
    std::vector<std::string> values; ///< NAME=VALUE
    std::string expect;              ///< "upgraded", "refused" or empty
    bool strict = false;
    bool details = false;
    bool json = false;
};

/// Throws failure where standard input is named more than once.
void require_one_standard_input(const command_options &options);

/// Throws failure where the output of `make` is one of the files that it is made from, or one of
/// `parts`, under whatever name.
void require_output_apart(const command_options &options,
                          const std::vector<std::filesystem::path> &parts);

/// The bytes of a package; more than a device takes fail with exit_bad.
std::vector<uint8_t> read_package_bytes(const std::filesystem::path &path);

/// The key in `path`, none for an empty path. What is odd about it is added to `to`.
std::optional<std::string> read_key(const std::filesystem::path &path, findings &to);

/// The devices, and what is odd about the keys that they would use.
std::vector<named_device> read_devices(const command_options &options, findings &to);

/// exit_trouble for an enciphered package that was read without a key, since that is a wrong call
/// and not a wrong package; exit_bad else.
int problem_status(const package_file &file, bool has_key);

} // namespace fwpkg
