// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the user asked for.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

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

} // namespace fwpkg
