// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/commands.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <thread>

#include "platform/device.h"
#include "tools/common/printable.h"
#include "tools/simdev/failure.h"
#include "tools/simdev/folder.h"
#include "tools/simdev/phases.h"
#include "tools/simdev/progress.h"
#include "tools/simdev/summary.h"
#include "tools/simdev/sweep.h"

namespace simdev {

namespace {

/// The stage and its percentage, as the datagrams tell them.
class stage_progress {
public:
    explicit stage_progress(bool quiet) : progress_(quiet) {}

    void take(const operation &operation)
    {
        if (operation.n == 1)
            progress_.show("download", 0);
        if (operation.target != status_receivers[0])
            return;
        const auto value = [&operation](std::string_view name) {
            return operation.text.starts_with(name) ? operation.text.substr(name.size())
                                                    : std::string();
        };
        if (const std::string stage = value("UPGRD_STAGE="); !stage.empty())
            stage_ = stage;
        else if (const std::string error = value("UPGRD_ERROR="); !error.empty())
            stage_ = "error: " + error;
        const std::string percent = value("UPGRD_PERCENTAGE=");
        if (!percent.empty())
            progress_.show(stage_, atoi(percent.c_str()));
        else if (stage_.starts_with("error"))
            progress_.show(stage_, 0);
    }

    void finish()
    {
        progress_.finish();
    }

private:
    progress progress_;
    std::string stage_;
};

} // namespace

int init_command(const command_options &options)
{
    const std::string text = options.device_file.empty() ? std::string(default_device_text)
                                                         : read_description(options.device_file);
    make_folder(options.run.folder, text,
                options.device_file.empty() ? "the default device" : options.device_file);
    for (const auto &[number, file] : partition_files(options.run.folder))
        printf("%s  %ju bytes\n", partition_device(number).text,
               static_cast<uintmax_t>(std::filesystem::file_size(file)));
    printf("made the device %s\n", options.run.folder.c_str());
    return 0;
}

int run_command(const command_options &options)
{
    std::ofstream log;
    if (!options.log_file.empty()) {
        log.open(options.log_file, std::ios::binary | std::ios::trunc);
        if (!log)
            throw failure(options.log_file + ": cannot be written");
    }
    catch_interrupts();
    run_summary summary;
    stage_progress progress(options.json);
    const run_listener listener = {
        [&](const operation &operation, std::string_view line) {
            add_operation(summary, operation);
            progress.take(operation);
            if (log.is_open())
                log << line << '\n';
        },
    };
    const run_outcome outcome = run_program(options.run, listener);
    progress.finish();
    if (log.is_open() && !log.flush())
        throw failure(options.log_file + ": cannot be written");
    if (options.json)
        std::cout << report_json(summary, options.run, outcome).dump(2) << '\n';
    else
        std::cout << report_text(summary, options.run, outcome);
    return outcome.exit_status;
}

int sweep_command(const command_options &options)
{
    constexpr int exit_interrupted = 128 + SIGINT;
    catch_interrupts();
    progress progress(options.json);
    const int cores = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    const sweep_result result =
        sweep(options.run, options.jobs > 0 ? options.jobs : cores, options.torn,
              [&progress](int64_t done, int64_t all) {
                  progress.show("cut and recover", static_cast<int>(done * 100 / all));
              });
    progress.finish();
    if (options.json)
        std::cout << sweep_json(result).dump(2) << '\n';
    else
        std::cout << sweep_text(result);
    if (result.interrupted)
        return exit_interrupted;
    return count_points(result).recovered == result.writes ? 0 : 1;
}

int watchdog_command(const command_options &options)
{
    catch_interrupts();
    run_options run = options.run;
    run.fast = true;
    stage_progress progress(options.json);
    std::vector<operation> operations;
    const run_outcome outcome =
        run_program(run, {[&](const operation &operation, std::string_view) {
                        operations.push_back(operation);
                        progress.take(operation);
                    }});
    progress.finish();
    const std::string url = run.arguments.empty() ? "http:" : run.arguments.front();
    const auto record = measure_phases(operations, printable(url.substr(0, url.find(':'))));
    if (options.json)
        std::cout << phases_json(record).dump(2) << '\n';
    else
        std::cout << phases_text(record);
    return outcome.exit_status;
}

} // namespace simdev
