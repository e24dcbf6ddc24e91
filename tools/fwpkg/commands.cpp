// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/commands.h"

#include <cstdio>
#include <optional>

#include "tools/fwpkg/failure.h"
#include "tools/fwpkg/files.h"
#include "tools/fwpkg/maker.h"
#include "tools/fwpkg/report.h"

namespace fwpkg {
namespace {

void print(const std::string &text)
{
    fwrite(text.data(), 1, text.size(), stdout);
}

std::optional<std::string> read_key(const command_options &options)
{
    if (options.key_file.empty())
        return std::nullopt;
    return read_key_file(options.key_file);
}

package_file read_package(const command_options &options)
{
    return open_package(read_file(options.file, package_capacity), read_key(options));
}

} // namespace

int make_command(const command_options &options)
{
    const manifest manifest = read_manifest(options.file);
    if (manifest.encrypt && options.key_file.empty())
        throw failure(manifest.name + ": encrypt = true needs --key-file", exit_unreadable);
    if (!manifest.encrypt && !options.key_file.empty())
        throw failure(manifest.name + ": --key-file is given, but encrypt = true is not",
                      exit_unreadable);
    const std::optional<std::string> key = read_key(options);
    const std::vector<uint8_t> bytes = make_package(manifest, key);
    write_file(options.output, bytes);
    print(layout_text(open_package(bytes, key)));
    return exit_sound;
}

int show_command(const command_options &options)
{
    const package_file file = read_package(options);
    const std::string name = options.file.string();
    print(options.json ? json_text(package_json(file, name)) : package_text(file, name));
    if (!file.problem.empty())
        throw failure(name + ": " + file.problem);
    return exit_sound;
}

} // namespace fwpkg
