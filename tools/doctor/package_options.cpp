// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/doctor/package_options.h"

#include <CLI/CLI.hpp>

#include "tools/common/failure.h"

namespace doctor {

void add_package_options(CLI::App &command, package_options &options)
{
    command.add_option("--package", options.packages, "A package to compare with")
        ->allow_extra_args(false);
    command
        .add_option("--key-file", options.keys,
                    "File with the key of the package before it; one newline at its end is not "
                    "part of it")
        ->allow_extra_args(false);
}

std::vector<package_choice> package_choices(const CLI::App &command, const package_options &options)
{
    std::vector<package_choice> choices;
    size_t keys = 0;
    for (const CLI::Option *option : command.parse_order()) {
        if (option->check_name("--package")) {
            choices.push_back({options.packages.at(choices.size()), {}});
        } else if (option->check_name("--key-file")) {
            if (choices.empty() || !choices.back().key_file.empty())
                throw failure("--key-file belongs behind the --package that it deciphers");
            choices.back().key_file = options.keys.at(keys++);
        }
    }
    return choices;
}

} // namespace doctor
