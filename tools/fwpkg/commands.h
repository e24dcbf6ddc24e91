// SPDX-License-Identifier: GPL-2.0-or-later
//
// The commands as the command line names them.
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

// Each returns the exit status (tools/common/failure.h) and throws failure.
int make_command(const command_options &options);
int show_command(const command_options &options);
int check_command(const command_options &options);
int plan_command(const command_options &options);
int diff_command(const command_options &options);
int condition_command(const command_options &options);
int extract_command(const command_options &options);

} // namespace fwpkg
