// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/commands.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <thread>
#include <unistd.h>

#include "tools/common/files.h"
#include "tools/common/printable.h"
#include "tools/simdev/folder.h"
#include "tools/simdev/interrupt.h"
#include "tools/simdev/operation_json.h"
#include "tools/simdev/progress.h"
#include "tools/simdev/run_report.h"
#include "tools/simdev/sweep.h"

namespace simdev {

namespace {

/// The file of `--log`; without a name, none.
class log_file {
public:
    explicit log_file(const std::string &name)
        : name_(name), file_(name.empty() ? nullptr : fopen(name.c_str(), "we"), close)
    {
        if (!name.empty() && file_ == nullptr)
            fail();
    }
    void take(const sim_operation &operation, const std::vector<std::string> &faults)
    {
        if (file_ != nullptr &&
            fprintf(file_.get(), "%s\n", operation_json(operation, faults).c_str()) < 0)
            fail();
    }
    void finish()
    {
        if (file_ != nullptr && fflush(file_.get()) != 0)
            fail();
    }

private:
    static void close(FILE *file)
    {
        fclose(file);
    }
    [[noreturn]] void fail() const
    {
        throw failure(name_ + ": cannot be written: " + strerror(errno));
    }

    std::string name_;
    std::unique_ptr<FILE, void (*)(FILE *)> file_;
};

void print(const report &report, bool as_json)
{
    std::cout << (as_json ? report.document().dump(2) + "\n" : report.text());
}

/// What the URL begins with; without one, what the program takes.
std::string protocol_of(const std::vector<std::string> &arguments)
{
    return arguments.empty() ? "http" : arguments.front().substr(0, arguments.front().find(':'));
}

} // namespace

int init_command(const command_options &options)
{
    catch_interrupts();
    const bool described = !options.device_file.empty();
    const std::string name = described ? options.device_file : "the default device";
    const std::string text = described               ? read_description(options.device_file)
                             : options.dumps.empty() ? std::string(default_device_text)
                                                     : describe_dumps(options.dumps);
    check_dumps(options.dumps, text, name);
    make_folder(options.run.folder, text, name);
    load_dumps(options.run.folder, options.dumps);
    for (const auto &[number, file] : partition_files(options.run.folder))
        printf("/dev/fla%d  %ju bytes\n", number,
               static_cast<uintmax_t>(std::filesystem::file_size(file)));
    printf("made the device %s\n", printable(options.run.folder.string()).c_str());
    return 0;
}

int status_command(const command_options &options)
{
    return report_status(options.run.folder, options.packages, options.json);
}

int run_command(const command_options &options)
{
    catch_interrupts();
    const folder_lock lock(options.run.folder);
    log_file log(options.log_file);
    measure measured(protocol_of(options.run.arguments), options.run.fast);
    stage_progress progress(options.json);
    const run_outcome outcome = run_program(options.run, [&](const sim_operation &operation) {
        measured.take(operation);
        progress.take(operation);
        log.take(operation, options.run.faults);
    });
    progress.finish();
    log.finish();
    print(report_run(measured.record(), options.run, outcome), options.json);
    return outcome.exit_status;
}

int sweep_command(const command_options &options)
{
    catch_interrupts();
    progress progress(options.json);
    const int cores = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    const sweep_result result =
        sweep(options.run, options.jobs > 0 ? options.jobs : cores, options.torn,
              [&progress](int64_t done, int64_t all) {
                  progress.show("cut and recover", static_cast<int>(done * 100 / all));
              });
    progress.finish();
    print(report_sweep(result), options.json);
    if (result.interrupted)
        return exit_interrupted;
    return count_points(result).recovered == result.writes ? 0 : 1;
}

int rehearse_command(const command_options &options)
{
    catch_interrupts();
    rehearse_options rehearsal = options.rehearse;
    rehearsal.run = options.run;
    rehearsal.jobs = options.jobs;
    progress progress(options.json || isatty(STDERR_FILENO) == 0);
    const rehearse_result result =
        rehearse(rehearsal, [&progress](int percent) { progress.show("rehearse", percent); });
    progress.finish();
    std::cout << (options.json ? rehearsal_json(result).dump(2) + "\n" : rehearsal_text(result));
    if (!options.junit_file.empty())
        write_file(options.junit_file, rehearsal_junit(result));
    if (result.interrupted)
        return exit_interrupted;
    return result.good() ? exit_good : exit_bad;
}

} // namespace simdev
