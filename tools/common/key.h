// SPDX-License-Identifier: GPL-2.0-or-later
//
// The key that packages are enciphered with, as host tools get it.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// The key in the file `path`: its bytes without one newline at the end. A NUL in it fails, since a
/// device's configuration holds text. Throws failure.
std::string read_key_file(const std::filesystem::path &path);

/// What is odd about a key, such as "the key is empty: ...": a slip while it was stored is likelier
/// than intent. The key itself is in none of the sentences.
std::vector<std::string> key_oddities(std::string_view key);
