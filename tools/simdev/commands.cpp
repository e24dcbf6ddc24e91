// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/commands.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <thread>
#include <unistd.h>

#include "tools/common/files.h"
#include "tools/common/printable.h"
#include "tools/image/reader.h"
#include "tools/simdev/folder.h"
#include "tools/simdev/measure.h"
#include "tools/simdev/progress.h"
#include "tools/simdev/sweep.h"
#include "tools/simdev/work.h"

namespace simdev {

namespace fs = std::filesystem;

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

void print(const report &said, bool as_json)
{
    std::cout << (as_json ? said.document().dump(2) + "\n" : said.text());
}

/// What the URL begins with; without one, what the program takes.
std::string protocol_of(const std::vector<std::string> &arguments)
{
    return arguments.empty() ? "http" : arguments.front().substr(0, arguments.front().find(':'));
}

/// The description of a small device whose partitions have the dumps' sizes.
std::string describe_dumps(const dump_files &dumps)
{
    std::string text = "# A simulated device made of dumps.\n\n[partitions]\n";
    for (const auto &[number, path] : dumps)
        text +=
            std::to_string(number) + " = " + std::to_string(image::file_reader(path).size) + "\n";
    const std::string_view usual = default_device_text;
    return text + "\n" + std::string(usual.substr(usual.find("[configuration]")));
}

/// Throws failure where a dump has another size than its partition of `made`, which is called
/// `name`.
void check_dumps(const dump_files &dumps, const device &made, const std::string &name)
{
    for (const auto &[number, path] : dumps) {
        const uint64_t size = image::file_reader(path).size;
        const auto partition = made.partitions.find(number);
        if (partition == made.partitions.end())
            throw failure(name + ": has no partition " + std::to_string(number) + " for " +
                          path.string());
        if (partition->second != size)
            throw failure(path.string() + ": has " + std::to_string(size) + " bytes, partition " +
                          std::to_string(number) + " of " + name + " has " +
                          std::to_string(partition->second));
    }
}

/// Copies the dumps into the device's partitions.
void load_dumps(const fs::path &folder, const dump_files &dumps)
{
    const std::map<int, fs::path> partitions = partition_files(folder);
    for (const auto &[number, path] : dumps) {
        const image::reader dump = image::file_reader(path);
        std::ofstream file(partitions.at(number), std::ios::binary | std::ios::trunc);
        image::each_piece(dump, dump.size, [&](uint64_t, std::span<const uint8_t> piece) {
            file.write(reinterpret_cast<const char *>(piece.data()),
                       static_cast<std::streamsize>(piece.size()));
            return file.good();
        });
        file.close();
        if (!file)
            throw failure(partitions.at(number).string() + ": cannot be written");
    }
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
    const device made = parse_device(text, name);
    check_dumps(options.dumps, made, name);
    make_folder(options.run.folder, made, text);
    load_dumps(options.run.folder, options.dumps);
    for (const auto &[number, file] : partition_files(options.run.folder))
        printf("/dev/fla%d  %ju bytes\n", number, static_cast<uintmax_t>(fs::file_size(file)));
    printf("made the device %s\n", printable(options.run.folder.string()).c_str());
    return 0;
}

int status_command(const command_options &options)
{
    read_folder(options.run.folder); // says what is no device
    std::vector<fs::path> files;
    for (const auto &[number, path] : partition_files(options.run.folder))
        files.push_back(path);
    return doctor::report_partitions("simdev", files, options.packages, options.json);
}

int run_command(const command_options &options)
{
    catch_interrupts();
    const folder_lock lock(options.run.folder);
    log_file log(options.log_file);
    measure measured(protocol_of(options.run.arguments), options.run.fast);
    stage_progress shown(options.json);
    const run_outcome outcome = run_program(options.run, [&](const sim_operation &operation) {
        measured.take(operation);
        shown.take(operation);
        log.take(operation, options.run.faults);
    });
    shown.finish();
    log.finish();
    print(report_run(measured.record(), options.run, outcome), options.json);
    return outcome.exit_status;
}

int sweep_command(const command_options &options)
{
    catch_interrupts();
    progress shown(options.json);
    const int cores = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    const sweep_result result =
        sweep(options.run, options.jobs > 0 ? options.jobs : cores, options.torn,
              [&shown](int percent) { shown.show("cut and recover", percent); });
    shown.finish();
    print(report_sweep(result), options.json);
    if (result.interrupted)
        return exit_interrupted;
    return count_points(result).recovered == result.writes ? 0 : 1;
}

int rehearse_command(const command_options &options)
{
    catch_interrupts();
    progress shown(options.json || isatty(STDERR_FILENO) == 0);
    const rehearse_result result =
        rehearse(options.rehearse, options.run, options.jobs,
                 [&shown](int percent) { shown.show("rehearse", percent); });
    shown.finish();
    print(report_rehearsal(result), options.json);
    if (!options.junit_file.empty())
        write_file(options.junit_file, rehearsal_junit(result));
    if (result.interrupted)
        return exit_interrupted;
    return result.good() ? exit_good : exit_bad;
}

} // namespace simdev
