// SPDX-License-Identifier: GPL-2.0-or-later
//
// The files that a command line names, read for the commands.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/fwpkg/commands.h"
#include "tools/fwpkg/finding.h"
#include "tools/fwpkg/package_file.h"
#include "tools/fwpkg/planner.h"

namespace fwpkg {

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
