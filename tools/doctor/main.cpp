// SPDX-License-Identifier: GPL-2.0-or-later
//
// The command line of fwdoctor.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "tools/common/command_line.h"
#include "tools/common/files.h"
#include "tools/doctor/diagnosis.h"
#include "tools/doctor/flash_judge.h"
#include "tools/doctor/log.h"
#include "tools/doctor/log_report.h"
#include "tools/doctor/package_options.h"
#include "tools/doctor/page.h"
#include "tools/doctor/redact.h"

namespace {

using namespace doctor;

constexpr char name[] = "fwdoctor";

struct options {
    std::string log;
    bool json = false;
    bool redact = false;
    bool formats = false;
    std::vector<std::filesystem::path> dumps;
    package_options packages;
};

std::ifstream open_log(const std::string &path)
{
    std::ifstream file(is_standard_stream(path) ? "/dev/stdin" : path, std::ios::binary);
    // A folder opens, and the first look at it fails.
    file.peek();
    if (file.bad() || !file.is_open())
        throw failure(path + ": cannot be read: " + strerror(errno));
    file.clear();
    return file;
}

int log_command(const options &chosen)
{
    std::ifstream in = open_log(chosen.log);
    if (chosen.redact) {
        redact(in, std::cout);
        std::cout.flush();
        return exit_good;
    }
    const log_file file = read_log(in);
    if (in.bad())
        throw failure(chosen.log + ": cannot be read: " + strerror(errno));
    if (file.runs.empty())
        throw failure(chosen.log + ": no message of upgrade in its " + std::to_string(file.lines) +
                      " lines");
    if (chosen.json)
        puts(log_json(file).dump(2).c_str());
    else
        fputs(log_text(file).c_str(), stdout);
    return is_flawless(file.runs.back()) ? exit_good : exit_bad;
}

int messages_command(const options &chosen)
{
    fputs((chosen.formats ? formats_text() : page_text()).c_str(), stdout);
    return exit_good;
}

} // namespace

int main(int argc, char **argv)
{
    command_line line(name, "Says after a failed upgrade what its log means and what is in the "
                            "flash.");
    options chosen;
    const command log = line.add("log", "Explain what upgrade wrote to standard error",
                                 [&] { return log_command(chosen); });
    log.add("FILE", chosen.log, "The log; - for standard input").required();
    const command_option json = log.add_flag("--json", chosen.json, "Print JSON");
    log.add_flag("--redact", chosen.redact, "Print the log itself, without key and password")
        .excludes(json);
    log.footer("Example:\n  fwdoctor log upgrade.log");

    const command flash = line.add("flash", "Judge partitions, or dumps of them", [&] {
        return report_partitions(name, chosen.dumps, package_choices(flash, chosen.packages),
                                 chosen.json);
    });
    flash.add("DUMP", chosen.dumps, "A dump of a partition, or the device itself").required();
    add_package_options(flash, chosen.packages);
    flash.add_flag("--json", chosen.json, "Print JSON");
    flash.footer("Example:\n  fwdoctor flash fla2.bin --package old.pkg --package new.pkg "
                 "--key-file vendor.key");

    // For scripts/check-messages.
    const command messages = line.add("messages", "Print docs/troubleshooting.md",
                                      [&] { return messages_command(chosen); });
    messages.hide();
    messages.add_flag("--formats", chosen.formats, "The messages alone, as JSON");
    return line.run(argc, argv, exit_trouble);
}
