// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/commands.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <unistd.h>

#include "tools/common/files.h"
#include "tools/common/sha256.h"
#include "tools/fwpkg/checks.h"
#include "tools/fwpkg/condition_report.h"
#include "tools/fwpkg/difference.h"
#include "tools/fwpkg/inputs.h"
#include "tools/fwpkg/json_report.h"
#include "tools/fwpkg/maker.h"
#include "tools/fwpkg/part_data.h"
#include "tools/fwpkg/plan_report.h"
#include "tools/fwpkg/show_report.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {

namespace fs = std::filesystem;

namespace {

void print(const std::string &text, FILE *stream = stdout)
{
    fwrite(text.data(), 1, text.size(), stream);
}

bool has_colour(FILE *stream)
{
    return isatty(fileno(stream)) != 0 && getenv("NO_COLOR") == nullptr;
}

void print_findings(FILE *stream, const findings &found)
{
    for (const finding &each : found.all)
        print(finding_text(each, has_colour(stream)), stream);
}

bool has_error(const findings &found)
{
    return std::ranges::count(found.all, severity::error, &finding::level) > 0;
}

summed_file sum_file(const std::string &name, std::span<const uint8_t> bytes)
{
    return {name, bytes.size(), sha256_text(bytes)};
}

/// A folder with all above it; what had to be made goes again unless it is kept.
class new_folder {
public:
    explicit new_folder(const fs::path &path)
    {
        std::error_code error;
        for (fs::path each = path; !each.empty() && !fs::exists(each, error);
             each = each.parent_path())
            made_ = each;
        fs::create_directories(path, error);
        if (error)
            throw failure(path.string() + ": " + error.message());
    }
    new_folder(const new_folder &) = delete;
    new_folder &operator=(const new_folder &) = delete;
    ~new_folder()
    {
        std::error_code ignored;
        if (!made_.empty())
            fs::remove_all(made_, ignored);
    }
    void keep()
    {
        made_.clear();
    }

private:
    fs::path made_;
};

} // namespace

int make_command(const command_options &options)
{
    require_one_standard_input(options);
    const manifest recipe = read_manifest(options.file);
    if (recipe.encrypt && options.key_file.empty())
        throw failure(recipe.name + ": encrypt = true needs --key-file");
    if (!recipe.encrypt && !options.key_file.empty())
        throw failure(recipe.name + ": --key-file is given, but encrypt = true is not");
    std::vector<fs::path> parts;
    for (const manifest_part &part : recipe.parts)
        parts.push_back(part.file);
    require_output_apart(options, parts);

    findings found;
    const std::optional<std::string> key = read_key(options.key_file, found);
    const std::vector<named_device> devices = read_devices(options, found);
    const made_package made = make_package(recipe, key);
    const package_file file = open_package(made.bytes, key);
    found.add(check_use(file));
    found.add(check_devices(made.bytes, key, devices));
    write_file(options.output, made.bytes);

    // Standard output is the package's own where it goes there.
    FILE *report = is_standard_stream(options.output) ? stderr : stdout;
    if (options.json) {
        std::vector<summed_file> inputs;
        for (size_t i = 0; i < parts.size(); i++)
            inputs.push_back(sum_file(parts[i].string(), made.inputs[i]));
        print(make_json(file, sum_file(options.output.string(), made.bytes), inputs, found.all),
              report);
    } else {
        print_findings(stderr, found);
        print(layout_text(file), report);
    }
    return has_error(found) ? exit_bad : exit_good;
}

int show_command(const command_options &options)
{
    require_one_standard_input(options);
    findings found;
    const std::string name = options.file.string();
    const std::optional<std::string> key = read_key(options.key_file, found);
    const std::vector<uint8_t> bytes = read_package_bytes(options.file);
    const package_file file = open_package(bytes, key);
    const summed_file summed = sum_file(name, bytes);
    print_findings(stderr, found);
    print(options.json ? show_json(file, summed) : package_text(file, name, summed.sha256));
    if (!file.problem.empty())
        throw failure(name + ": " + file.problem, problem_status(file, key.has_value()));
    return exit_good;
}

int check_command(const command_options &options)
{
    require_one_standard_input(options);
    findings found;
    const std::string name = options.file.string();
    const std::optional<std::string> key = read_key(options.key_file, found);
    const std::vector<named_device> devices = read_devices(options, found);
    const std::vector<uint8_t> bytes = read_package_bytes(options.file);
    const package_file file = open_package(bytes, key);
    if (problem_status(file, key.has_value()) == exit_trouble)
        throw failure(name + ": " + file.problem);
    found.add(check_form(file));
    if (file.stage == read_stage::table)
        found.add(check_use(file));
    // Where the form is wrong, what the devices make of it says nothing more.
    if (!has_error(found))
        found.add(check_devices(bytes, key, devices));
    const auto errors =
        static_cast<uint64_t>(std::ranges::count(found.all, severity::error, &finding::level));
    const uint64_t warnings = found.all.size() - errors;
    const bool sound = errors == 0 && (warnings == 0 || !options.strict);
    if (options.json) {
        print(check_json(name, found.all, sound));
    } else {
        print_findings(stdout, found);
        print(printable(name) + ": " + (errors == 0 ? "sound" : count_of(errors, "error")) + ", " +
              count_of(warnings, "warning") + (sound || errors > 0 ? "" : ": not sound if strict") +
              "\n");
    }
    return sound ? exit_good : exit_bad;
}

int plan_command(const command_options &options)
{
    constexpr size_t details_limit = 3; // devices whose details are shown without being asked for
    require_one_standard_input(options);
    findings found;
    const std::vector<named_device> devices = read_devices(options, found);
    const std::vector<uint8_t> bytes = read_package_bytes(options.file);
    plan_maker maker(bytes);
    std::vector<device_plan> plans;
    for (const named_device &each : devices)
        plans.push_back(maker.plan(each));
    print_findings(stderr, found);
    if (options.json) {
        print(plan_json(options.file.string(), plans));
    } else {
        const bool details = options.details || plans.size() <= details_limit;
        print(plan_summary(plans) + "\n");
        for (const device_plan &plan : plans) {
            if (details)
                print(plan_text(plan));
            else if (plan.exit_status != 0)
                print(printable(plan.name) + ": " + verdict_text(plan) + "\n");
        }
        if (!details)
            print("--details shows what each device compares, and the room it has left\n");
    }
    if (options.expect.empty())
        return exit_good;
    const bool expected = std::ranges::all_of(
        plans, [&](const device_plan &plan) { return result_name(plan) == options.expect; });
    return expected ? exit_good : exit_bad;
}

int diff_command(const command_options &options)
{
    require_one_standard_input(options);
    findings found;
    const std::optional<std::string> key = read_key(options.key_file, found);
    const std::optional<std::string> key_after =
        options.key_file_after.empty() ? key : read_key(options.key_file_after, found);
    const std::vector<named_device> devices = read_devices(options, found);
    const auto open_whole = [](const fs::path &path, const std::vector<uint8_t> &bytes,
                               const std::optional<std::string> &with) {
        package_file file = open_package(bytes, with);
        if (!file.problem.empty() || !file.length_right || !file.digest_right)
            throw failure(
                path.string() + ": " +
                (file.problem.empty() ? "the length or the digest is wrong" : file.problem));
        return file;
    };
    const std::vector<uint8_t> before = read_package_bytes(options.file);
    const std::vector<uint8_t> after = read_package_bytes(options.after);
    const package_file file_before = open_whole(options.file, before, key);
    const package_file file_after = open_whole(options.after, after, key_after);
    const package_difference difference =
        compare_packages({before, file_before}, {after, file_after}, devices);
    print_findings(stderr, found);
    const auto text = options.json ? diff_json : difference_text;
    print(text(difference, options.file.string(), options.after.string()));
    return difference.same ? exit_good : exit_bad;
}

int condition_command(const command_options &options)
{
    std::map<std::string, std::string> values;
    for (const std::string &value : options.values) {
        const size_t sign = value.find('=');
        if (sign == std::string::npos || sign == 0)
            throw failure("\"" + value + "\" is not NAME=VALUE");
        values[value.substr(0, sign)] = value.substr(sign + 1);
    }
    const condition_report report = explain_condition(options.condition, values);
    if (options.json) {
        print(condition_json(options.condition, report));
    } else {
        findings found;
        for (const std::string &warning : report.warnings)
            found.warning("condition", warning);
        print(condition_text_report(report));
        print_findings(stderr, found);
    }
    return report.holds ? exit_good : exit_bad;
}

int extract_command(const command_options &options)
{
    require_one_standard_input(options);
    findings found;
    const std::optional<std::string> key = read_key(options.key_file, found);
    const package_file file = open_package(read_package_bytes(options.file), key);
    std::vector<extracted_part> parts;
    try {
        parts = extract_parts(file);
    } catch (const failure &error) {
        throw failure(options.file.string() + ": " + error.what(),
                      problem_status(file, key.has_value()));
    }
    print_findings(stderr, found);
    new_folder folder(options.output);
    std::vector<summed_file> files;
    for (const extracted_part &part : parts) {
        const fs::path path = options.output / part.name;
        write_file(path, part.data);
        files.push_back(sum_file(path.string(), part.data));
        if (!options.json)
            print(printable(path.string()) + ": " + count_of(part.data.size(), "byte") + "\n");
    }
    if (options.json)
        print(extract_json(options.file.string(), files));
    folder.keep();
    return exit_good;
}

} // namespace fwpkg
