// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/doctor/package_options.h"

#include "tools/common/failure.h"

namespace doctor {

void add_package_options(const command &to, package_options &options)
{
    to.add("--package", options.packages, "A package to compare with").repeated();
    to.add("--key-file", options.keys,
           "File with the key of the package before it; one newline at its end is not part of it")
        .repeated();
}

std::vector<package_choice> package_choices(const command &from, const package_options &options)
{
    std::vector<package_choice> choices;
    size_t keys = 0;
    for (const std::string &option : from.order()) {
        if (option == "--package") {
            choices.push_back({options.packages.at(choices.size()), {}});
        } else if (option == "--key-file") {
            if (choices.empty() || !choices.back().key_file.empty())
                throw failure("--key-file belongs behind the --package that it deciphers");
            choices.back().key_file = options.keys.at(keys++);
        }
    }
    return choices;
}

} // namespace doctor
