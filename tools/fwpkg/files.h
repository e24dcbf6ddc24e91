// SPDX-License-Identifier: GPL-2.0-or-later
//
// Reading and writing whole files. Every failure is thrown as one line with the file's name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace fwpkg {

/// The bytes of `path`. A file of more than `limit` bytes fails, its size named; so does a folder.
std::vector<uint8_t> read_file(const std::filesystem::path &path, size_t limit);

/// The key in `path`: its bytes without one trailing newline. A NUL in it fails, since a device's
/// configuration holds text.
std::string read_key_file(const std::filesystem::path &path);

/// Puts `bytes` at `path`, all or nothing: a temporary file in the same folder is written, flushed
/// to the disk and renamed. On failure the old file is left as it was and the temporary one is
/// gone. A link is followed; anything but a regular file is refused.
void write_file(const std::filesystem::path &path, std::span<const uint8_t> bytes);

} // namespace fwpkg
