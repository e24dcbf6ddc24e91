// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/rehearse_check.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "flash/crc32.h"
#include "flash/trailer.h"
#include "platform/device.h"
#include "tools/common/toml.h"
#include "tools/fwpkg/part_data.h"
#include "tools/simdev/report.h"
#include "tools/simdev/work.h"

namespace simdev {

namespace {

using fwpkg::block_size;

struct endless_write {};

/// Takes a run's operations one after the other.
struct observer {
    observed_run run;
    bool script_over = false;
    bool trailer_next = false; // each is written behind a seek from the end, and nothing else is
    int failed_in_a_row = 0;

    void take(const sim_operation &operation)
    {
        run.virtual_us = operation.virtual_us;
        const bool flash = std::string_view(operation.target).starts_with(partition_prefix);
        if (operation.op == op_script)
            script_over = true;
        else if (operation.op == op_sleep && script_over)
            run.rest_us += operation.duration_us;
        else if (operation.op == op_seek && flash)
            trailer_next = operation.offset < 0;
        else if (operation.op == op_write && flash)
            take_write(operation);
    }

    void take_write(const sim_operation &operation)
    {
        constexpr int for_ever = 100;
        const bool failed = operation.error != 0;
        failed_in_a_row = failed ? failed_in_a_row + 1 : 0;
        if (failed_in_a_row == for_ever)
            throw endless_write();
        run.blocks += failed || trailer_next ? 0 : 1;
        trailer_next = false;
    }
};

/// The partition's name and where it begins to differ.
std::string content_difference(int number, const std::string &planned, const std::string &found)
{
    const std::string device = partition_device(number).text;
    if (planned.size() != found.size())
        return device + " has " + std::to_string(found.size()) + " bytes, planned are " +
               std::to_string(planned.size());
    int64_t blocks = 0;
    size_t first = found.size();
    for (size_t at = 0; at < found.size(); at += block_size) {
        if (planned.compare(at, block_size, found, at, block_size) == 0)
            continue;
        blocks++;
        first = std::min(first, at);
    }
    return device + " differs from the plan in " + std::to_string(blocks) +
           " blocks, the first is block " + std::to_string(first / block_size) +
           "; trailer: " + name(judge_content(found)) +
           ", planned: " + name(judge_content(planned));
}

/// Blocks of the plan, those of a write that would be tried for ever included.
int64_t planned_blocks(const fwpkg::device_plan &plan)
{
    int64_t blocks = plan.blocks;
    for (const fwpkg::planned_part &part : plan.parts)
        if (plan.endless && part.outcome == fwpkg::part_outcome::refused)
            blocks += static_cast<int64_t>((*part.partition_size + block_size - 1) / block_size);
    return blocks;
}

} // namespace

observed_run observe_run(const run_options &options)
{
    observer seen;
    try {
        const run_outcome outcome =
            run_program(options, [&](const sim_operation &each) { seen.take(each); });
        seen.run.exit_status = outcome.exit_status;
    } catch (const endless_write &) {
        seen.run.exit_status.reset(); // the program is ended already
    }
    if (is_interrupted())
        throw failure("interrupted", exit_interrupted);
    if (const std::vector<std::string> lines = stderr_lines(options); !lines.empty())
        seen.run.last_line = lines.back();
    return seen.run;
}

void write_as_planned(partition_contents &contents, const fwpkg::device_plan &plan,
                      const fwpkg::package_file &package)
{
    const std::span<const uint8_t> blocks = fwpkg::whole_blocks(package.blocks.get());
    for (size_t index = 0; index < plan.parts.size(); index++) {
        const fwpkg::part_outcome outcome = plan.parts[index].outcome;
        const bool endless = plan.endless && outcome == fwpkg::part_outcome::refused;
        if (outcome != fwpkg::part_outcome::written && !endless)
            continue;
        const package_part &part = package.parts.at(index).part;
        const std::span<const uint8_t> data = fwpkg::written_data(blocks, part);
        std::string &partition = contents.at(part.type);
        if (!data.empty())
            memcpy(partition.data(), data.data(), std::min(data.size(), partition.size()));
        if (endless)
            continue;
        const uint32_t crc = crc32(0, data.data(), data.size());
        const partition_trailer trailer = {crc, part.size, trailer_check(crc, part.size),
                                           partition_trailer_magic};
        memcpy(partition.data() + partition.size() - sizeof trailer, &trailer, sizeof trailer);
    }
}

std::vector<std::string> compare_with_plan(const fwpkg::device_plan &plan, const observed_run &run,
                                           const partition_contents &planned,
                                           const partition_contents &found)
{
    std::vector<std::string> faults;
    const auto status = [](std::optional<int> number) {
        return number ? "exit status " + std::to_string(*number) : std::string("no end");
    };
    const auto planned_status = plan.endless ? std::nullopt : std::optional(plan.exit_status);
    if (run.exit_status != planned_status)
        faults.push_back(status(run.exit_status) + ", planned: " + status(planned_status) +
                         (run.last_line.empty() ? "" : "; it said \"" + run.last_line + "\""));
    for (const auto &[number, content] : planned) {
        const auto there = found.find(number);
        if (there == found.end())
            faults.push_back(std::string(partition_device(number).text) + " is gone");
        else if (content != there->second)
            faults.push_back(content_difference(number, content, there->second));
    }
    if (const int64_t blocks = planned_blocks(plan); run.blocks != blocks)
        faults.push_back(std::to_string(run.blocks) +
                         " blocks written, planned: " + std::to_string(blocks));
    if (!plan.endless && run.rest_us != plan.milliseconds * 1000)
        faults.push_back(seconds_text(run.rest_us) + " of rests in writing, planned: " +
                         seconds_text(plan.milliseconds * 1000));
    return faults;
}

std::vector<std::string> read_expectations(const std::string &expect,
                                           const std::vector<std::filesystem::path> &devices)
{
    constexpr std::array results = {"upgraded", "refused", "failed", "endless"};
    if (expect.empty() || expect == results[0] || expect == results[1])
        return std::vector<std::string>(devices.size(), expect);
    const auto name = [](const std::filesystem::path &device) {
        return device.filename().string();
    };
    std::vector<std::string> expected(devices.size());
    for (const toml_value &value : parse_toml(read_text(expect), expect).members()) {
        constexpr char expects[] = "upgraded, refused, failed or endless, in quotes";
        const std::string result = value.text(expects);
        if (std::ranges::find(results, result) == results.end())
            value.fail(value.subject + " must be " + expects);
        if (std::ranges::find(devices, value.key, name) == devices.end())
            value.fail("no device is called " + value.subject);
        for (size_t index = 0; index < devices.size(); index++)
            if (name(devices[index]) == value.key)
                expected[index] = result;
    }
    for (size_t index = 0; index < devices.size(); index++)
        if (expected[index].empty())
            throw failure(expect + ": has nothing for \"" + name(devices[index]) + "\"");
    return expected;
}

std::string result_text(const observed_run &run)
{
    constexpr std::array results = {"upgraded", "refused", "failed"};
    if (!run.exit_status)
        return "endless";
    const auto status = static_cast<size_t>(*run.exit_status);
    return status < results.size() ? results.at(status) : "exit status " + std::to_string(status);
}

} // namespace simdev
