// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/commands.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <unistd.h>

#include "tools/common/files.h"
#include "tools/common/key.h"
#include "tools/fwpkg/checker.h"
#include "tools/fwpkg/condition_report.h"
#include "tools/fwpkg/extractor.h"
#include "tools/fwpkg/maker.h"
#include "tools/fwpkg/plan_report.h"
#include "tools/fwpkg/report.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

void print(const std::string &text)
{
    fwrite(text.data(), 1, text.size(), stdout);
}

bool has_colour(FILE *stream)
{
    return isatty(fileno(stream)) != 0 && getenv("NO_COLOR") == nullptr;
}

void print_findings(FILE *stream, const std::vector<finding> &findings)
{
    for (const finding &finding : findings)
        fputs(finding_text(finding, has_colour(stream)).c_str(), stream);
}

std::vector<named_device> read_devices(const command_options &options)
{
    std::vector<named_device> devices;
    for (const std::filesystem::path &path : options.devices)
        devices.push_back({path.string(), read_device(path)});
    return devices;
}

std::optional<std::string> read_key(const command_options &options)
{
    if (options.key_file.empty())
        return std::nullopt;
    return read_key_file(options.key_file);
}

package_file read_package(const command_options &options)
{
    return open_package(read_bytes(options.file, package_capacity, exit_bad), read_key(options));
}

/// An enciphered package without a key is a wrong call and not a wrong package.
exit_status problem_status(const package_file &file, const command_options &options)
{
    const bool lacks_key = options.key_file.empty() && file.stage == read_stage::head &&
                           file.record.encryp == encryption_rc4 && file.length_right;
    return lacks_key ? exit_trouble : exit_bad;
}

} // namespace

int make_command(const command_options &options)
{
    const manifest manifest = read_manifest(options.file);
    if (manifest.encrypt && options.key_file.empty())
        throw failure(manifest.name + ": encrypt = true needs --key-file", exit_trouble);
    if (!manifest.encrypt && !options.key_file.empty())
        throw failure(manifest.name + ": --key-file is given, but encrypt = true is not",
                      exit_trouble);
    const std::optional<std::string> key = read_key(options);
    const std::vector<named_device> devices = read_devices(options);
    const std::vector<uint8_t> bytes = make_package(manifest, key);
    const package_file file = open_package(bytes, key);
    write_file(options.output, bytes);
    print_findings(stderr, advise(file, devices));
    print(layout_text(file));
    return exit_good;
}

int show_command(const command_options &options)
{
    const package_file file = read_package(options);
    const std::string name = options.file.string();
    print(options.json ? json_text(package_json(file, name)) : package_text(file, name));
    if (!file.problem.empty())
        throw failure(name + ": " + file.problem, problem_status(file, options));
    return exit_good;
}

int check_command(const command_options &options)
{
    const std::string name = options.file.string();
    const package_file file = read_package(options);
    if (problem_status(file, options) == exit_trouble)
        throw failure(name + ": " + file.problem, exit_trouble);
    const std::vector<finding> findings = check_package(file, read_devices(options));
    const auto errors =
        static_cast<uint64_t>(std::ranges::count(findings, severity::error, &finding::level));
    const uint64_t warnings = findings.size() - errors;
    if (options.json) {
        json document = {
            {"file", printable(name)}, {"sound", errors == 0}, {"findings", json::array()}};
        for (const finding &finding : findings)
            document["findings"].push_back(finding_json(finding));
        print(json_text(document));
    } else {
        print_findings(stdout, findings);
        print(printable(name) + ": " + (errors == 0 ? "sound" : count_of(errors, "error")) + ", " +
              count_of(warnings, "warning") + "\n");
    }
    return errors == 0 ? exit_good : exit_bad;
}

int plan_command(const command_options &options)
{
    const std::vector<uint8_t> bytes = read_bytes(options.file, package_capacity, exit_bad);
    json document = json::array();
    for (const named_device &device : read_devices(options)) {
        const device_plan plan = plan_upgrade(bytes, device);
        document.push_back(plan_json(plan));
        if (!options.json)
            print(plan_text(plan));
    }
    if (options.json)
        print(json_text(document));
    return exit_good;
}

int condition_command(const command_options &options)
{
    std::map<std::string, std::string> values;
    for (const std::string &value : options.values) {
        const size_t sign = value.find('=');
        if (sign == std::string::npos || sign == 0)
            throw failure("\"" + value + "\" is not NAME=VALUE", exit_trouble);
        values[value.substr(0, sign)] = value.substr(sign + 1);
    }
    const condition_report report = explain_condition(options.condition, values);
    print(report.listing);
    for (const std::string &trap : report.traps)
        print_findings(stderr, {{severity::warning, "condition", trap, {}}});
    return exit_good;
}

int extract_command(const command_options &options)
{
    const package_file file = read_package(options);
    std::vector<extracted_part> parts;
    try {
        parts = extract_parts(file);
    } catch (const failure &error) {
        throw failure(options.file.string() + ": " + error.what(), problem_status(file, options));
    }
    std::error_code error;
    std::filesystem::create_directories(options.output, error);
    if (error)
        throw failure(options.output.string() + ": " + error.message(), exit_trouble);
    for (const extracted_part &part : parts) {
        const std::filesystem::path path = options.output / part.name;
        write_file(path, part.data);
        print(printable(path.string()) + ": " + count_of(part.data.size(), "byte") + "\n");
    }
    return exit_good;
}

} // namespace fwpkg
