// SPDX-License-Identifier: GPL-2.0-or-later
//
// The commands as the command line names them. Each returns the exit status and throws failure.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace fwpkg {

/// Whatever a command line can say; each command looks at its own.
struct command_options {
    std::filesystem::path file;     ///< the manifest of `make`, else the package
    std::filesystem::path output;   ///< the package of `make`, the folder of `extract`
    std::filesystem::path key_file; ///< empty for none
    std::vector<std::filesystem::path> devices;
    std::string condition;
    std::vector<std::string> values; ///< NAME=VALUE
    bool json = false;
};

int make_command(const command_options &options);
int show_command(const command_options &options);
int check_command(const command_options &options);
int plan_command(const command_options &options);
int condition_command(const command_options &options);
int extract_command(const command_options &options);

} // namespace fwpkg
