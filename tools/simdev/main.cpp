// SPDX-License-Identifier: GPL-2.0-or-later
//
// The command line of simdev.
#include <arpa/inet.h>

#include "tools/common/command_line.h"
#include "tools/common/failure.h"
#include "tools/doctor/package_options.h"
#include "tools/simdev/commands.h"
#include "tools/simdev/core/faults.h"

namespace {

using namespace simdev;

std::string fault_help()
{
    std::string text = "Faults:\n";
    for (const fault_row &fault : fault_rows)
        text += std::string("  ") + fault.form + "\n      " + fault.text + "\n";
    return text;
}

bool is_port(const std::string &text)
{
    const bool digits = !text.empty() && text.size() <= 5 &&
                        text.find_first_not_of("0123456789") == std::string::npos;
    return digits && std::stoi(text) >= 1 && std::stoi(text) <= 65535;
}

std::string check_port_map(const std::string &pair)
{
    const size_t sign = pair.find('=');
    const bool right = sign != std::string::npos && is_port(pair.substr(0, sign)) &&
                       is_port(pair.substr(sign + 1));
    return right ? ""
                 : "\"" + pair +
                       "\" is not A=B, two ports of 1 to 65535: the device's and the one that the "
                       "server listens on";
}

std::string check_host_map(const std::string &pair)
{
    const size_t sign = pair.find('=');
    in_addr address = {};
    const bool right = sign != std::string::npos && sign > 0 && sign < 128 &&
                       inet_pton(AF_INET, pair.c_str() + sign + 1, &address) == 1;
    return right ? "" : "\"" + pair + "\" is not NAME=ADDRESS with an address as 127.0.0.1";
}

/// "2=DUMP" taken apart into `dumps`. Empty, or what is wrong with it.
std::string add_dump(dump_files &dumps, const std::string &pair)
{
    if (pair.size() < 3 || pair[0] < '0' || pair[0] > '9' || pair[1] != '=')
        return "\"" + pair + "\" is not N=DUMP, with a partition's number from 0 to 9";
    if (!dumps.emplace(pair[0] - '0', pair.substr(2)).second)
        return std::string("partition ") + pair[0] + " is given twice";
    return {};
}

/// "1=PATH" taken apart into `receivers`. Empty, or what is wrong with it.
std::string add_receiver(std::map<int, std::filesystem::path> &receivers, const std::string &pair)
{
    if (pair.size() < 3 || (pair[0] != '1' && pair[0] != '2') || pair[1] != '=')
        return "\"" + pair + "\" is not 1=PATH or 2=PATH";
    receivers[pair[0] - '0'] = pair.substr(2);
    return {};
}

void add_folder(const command &sub, command_options &options)
{
    sub.add("DIR", options.run.folder, "The device folder").required();
}

void add_program_options(const command &sub, command_options &options)
{
    sub.add("--program", options.run.program,
            "The program to run (default: the upgrade beside simdev)");
    sub.add("--grace", options.run.grace_ms,
            "Fast: real milliseconds that a peer may take to answer")
        .range(1, 3'600'000)
        .show_default();
    sub.add_flag("--json", options.json, "Print the report as JSON, and no progress");
}

/// What all commands that run the program from a server of the user's take.
void add_run_options(const command &sub, command_options &options)
{
    add_folder(sub, options);
    add_program_options(sub, options);
    sub.add("URL", options.run.arguments, "The program's arguments, behind \"--\"");
    sub.add("--tftp-port", options.run.tftp_port,
            "Where the TFTP server really listens: UDP port 69 of the device")
        .range(1, 65535);
    sub.add("--map-port", options.run.port_maps,
            "A=B: what the device sends to TCP port A, of whatever address, goes to port B "
            "of this machine; may be repeated")
        .repeated()
        .check(check_port_map);
    sub.add("--map-host", options.run.host_maps,
            "NAME=ADDRESS: the host NAME, or the address, is ADDRESS; may be repeated")
        .repeated()
        .check(check_host_map);
    sub.add_flag("--real-network", options.run.real_network,
                 "Addresses and names that nothing maps are those of the real network, not "
                 "unreachable");
}

void add_playing_options(const command &sub, command_options &options)
{
    sub.add_flag("--fast", options.run.fast, "Count sleeps and vain waits instead of waiting");
    sub.add("--fault", options.run.faults, "Play a fault (below); may be repeated").repeated();
    sub.add("--seed", options.run.seed, "For what a fault leaves open");
    sub.footer(fault_help());
}

void add_jobs(const command &sub, command_options &options, const char *what)
{
    sub.add("--jobs", options.jobs, what).range(1, 256);
}

void describe_rehearse(const command &sub, command_options &options)
{
    rehearse_options &rehearse = options.rehearse;
    sub.add("PACKAGE", rehearse.package, "The package").required();
    sub.add("--device", rehearse.devices, "A device's description; may be repeated")
        .required()
        .repeated();
    sub.add("--key-file", rehearse.key_file, "The key of devices whose description has none");
    sub.add("--from", rehearse.older, "A package that the devices hold before");
    sub.add_flag("--sweep", rehearse.sweep, "Also cut the power after every flash write");
    sub.add_flag("--https", rehearse.https, "Serve by HTTPS, with a certificate of this run");
    sub.add("--expect", rehearse.expect,
            "What the devices must come to: upgraded, refused, or a file that says it for "
            "each (default: what fwpkg plan says)");
    sub.add("--junit", options.junit_file, "Write the result as JUnit's XML");
    add_jobs(sub, options, "Runs at a time (default: 2 a core; 16, where they really wait)");
    add_playing_options(sub, options);
    add_program_options(sub, options);
}

void describe_init(const command &init, command_options &options)
{
    add_folder(init, options);
    init.add("--device", options.device_file,
             "The device's description, a TOML file (default: a small device)");
    init.add_each(
        "--flash", [&options](const std::string &pair) { return add_dump(options.dumps, pair); },
        "N=DUMP: partition N holds the dump; may be repeated");
}

void describe_run(const command &run, command_options &options)
{
    add_run_options(run, options);
    add_playing_options(run, options);
    run.add_each(
        "--receiver",
        [&options](const std::string &pair) { return add_receiver(options.run.receivers, pair); },
        "N=PATH: status receiver N (1 .upgrd_info, 2 .syscfg-server) is who listens on PATH");
    run.add("--log", options.log_file, "Write each operation as a line of JSON");
    run.add("--stdout", options.run.stdout_file,
            "For the program's standard output (default: DIR/run/stdout; - lets it through)");
    run.add("--stderr", options.run.stderr_file,
            "For the program's standard error (default: DIR/run/stderr; - lets it through)");
}

void describe_sweep(const command &sweep, command_options &options)
{
    add_run_options(sweep, options);
    add_jobs(sweep, options, "Runs at a time (default: one a core)");
    sweep.add("--torn", options.torn, "Cut inside each write, behind so many bytes, not behind it")
        .range(0, 4096);
}

} // namespace

int main(int argc, char **argv)
{
    command_line line("simdev", "Runs upgrade on a simulated device that lives in a folder.");
    command_options options;
    doctor::package_options packages;
    const auto add = [&](const char *name, const char *what, auto run) {
        return line.add(name, what, [&options, run] { return run(options); });
    };
    describe_init(add("init", "Make a device folder", init_command), options);
    const command status =
        line.add("status", "Judge a device's partitions, as fwdoctor flash does", [&] {
            options.packages = doctor::package_choices(status, packages);
            return status_command(options);
        });
    add_folder(status, options);
    doctor::add_package_options(status, packages);
    status.add_flag("--json", options.json, "Print JSON");
    describe_run(add("run", "Run an upgrade on a device", run_command), options);
    describe_sweep(add("sweep", "Cut the power after every flash write of an upgrade, and recover",
                       sweep_command),
                   options);
    describe_rehearse(
        add("rehearse", "Try a package on every device, against its plan", rehearse_command),
        options);
    return line.run(argc, argv, exit_runner_trouble);
}
