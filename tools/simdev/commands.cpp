// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/commands.h"

#include <cstdio>
#include <fstream>
#include <iostream>

#include "tools/simdev/failure.h"
#include "tools/simdev/folder.h"
#include "tools/simdev/progress.h"
#include "tools/simdev/summary.h"

namespace simdev {

namespace {

/// The stage and its percentage, as the datagrams tell them.
class stage_progress {
public:
    explicit stage_progress(bool quiet) : progress_(quiet) {}

    void start()
    {
        progress_.show("download", 0);
    }

    void take(const datagram &datagram)
    {
        if (datagram.receiver != 0)
            return;
        const auto value = [&datagram](std::string_view name) {
            return datagram.text.starts_with(name) ? datagram.text.substr(name.size())
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
                                                         : read_file(options.device_file);
    make_folder(options.run.folder, text,
                options.device_file.empty() ? "the default device" : options.device_file);
    for (const auto &[number, file] : partition_files(options.run.folder))
        printf("/dev/fla%d  %ju bytes\n", number,
               static_cast<uintmax_t>(std::filesystem::file_size(file)));
    printf("%s is a device\n", options.run.folder.c_str());
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
            if (operation.n == 1)
                progress.start();
            if (log.is_open())
                log << line << '\n';
        },
        [&](const datagram &datagram) {
            add_datagram(summary, datagram);
            progress.take(datagram);
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

} // namespace simdev
