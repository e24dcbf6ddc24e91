// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/inputs.h"

#include <algorithm>

#include "tools/common/files.h"
#include "tools/common/key.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

std::vector<std::filesystem::path> named_inputs(const command_options &options)
{
    std::vector<std::filesystem::path> paths = {options.file, options.after, options.key_file,
                                                options.key_file_after};
    paths.insert(paths.end(), options.devices.begin(), options.devices.end());
    return paths;
}

} // namespace

void require_one_standard_input(const command_options &options)
{
    if (std::ranges::count_if(named_inputs(options), is_standard_stream) > 1)
        throw failure("standard input is named more than once");
}

void require_output_apart(const command_options &options,
                          const std::vector<std::filesystem::path> &parts)
{
    std::vector<std::filesystem::path> inputs = named_inputs(options);
    inputs.insert(inputs.end(), parts.begin(), parts.end());
    for (const std::filesystem::path &input : inputs) {
        std::error_code error; // a file that is not there is none of them
        if (std::filesystem::equivalent(input, options.output, error))
            throw failure(options.output.string() + ": would be written over, and is read as " +
                          input.string());
    }
}

std::vector<uint8_t> read_package_bytes(const std::filesystem::path &path)
{
    return read_bytes(path, package_capacity, exit_bad);
}

std::optional<std::string> read_key(const std::filesystem::path &path, findings &to)
{
    if (path.empty())
        return std::nullopt;
    const std::string key = read_key_file(path);
    for (const std::string &oddity : key_oddities(key))
        to.warning(printable(path.string()), oddity);
    return key;
}

std::vector<named_device> read_devices(const command_options &options, findings &to)
{
    std::vector<named_device> devices;
    for (const std::filesystem::path &path : options.devices) {
        devices.push_back({path.string(), read_device(path)});
        const auto &configuration = devices.back().description.configuration;
        const auto key = configuration.find("VENDOR_KEY");
        if (key == configuration.end())
            continue;
        for (const std::string &oddity : key_oddities(key->second))
            to.warning(printable(path.string()), "VENDOR_KEY: " + oddity);
    }
    return devices;
}

int problem_status(const package_file &file, bool has_key)
{
    const bool lacks_key = !has_key && file.stage == read_stage::head &&
                           file.record.encryp == encryption_rc4 && file.length_right;
    return lacks_key ? exit_trouble : exit_bad;
}

} // namespace fwpkg
