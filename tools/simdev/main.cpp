// SPDX-License-Identifier: GPL-2.0-or-later
//
// The command line of simdev.
#include <arpa/inet.h>

#include <CLI/CLI.hpp>

#include "tools/common/command_line.h"
#include "tools/common/failure.h"
#include "tools/doctor/package_options.h"
#include "tools/simdev/commands.h"
#include "tools/simdev/core/faults.h"

namespace {

using namespace simdev;

using command = int (*)(const command_options &options);

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

std::string check_receiver(const std::string &pair)
{
    const bool right = pair.size() > 2 && (pair[0] == '1' || pair[0] == '2') && pair[1] == '=';
    return right ? "" : "\"" + pair + "\" is not 1=PATH or 2=PATH";
}

void add_folder(CLI::App *sub, command_options &options)
{
    sub->add_option("DIR", options.run.folder, "The device folder")->required();
}

void add_program_options(CLI::App *sub, command_options &options)
{
    sub->add_option("--program", options.run.program,
                    "The program to run (default: the upgrade beside simdev)");
    sub->add_option("--grace", options.run.grace_ms,
                    "Fast: real milliseconds that a peer may take to answer")
        ->check(CLI::Range(1, 3'600'000))
        ->capture_default_str();
    sub->add_flag("--json", options.json, "Print the report as JSON, and no progress");
}

/// What all commands that run the program from a server of the user's take.
void add_run_options(CLI::App *sub, command_options &options)
{
    add_folder(sub, options);
    add_program_options(sub, options);
    sub->add_option("URL", options.run.arguments, "The program's arguments, behind \"--\"");
    sub->add_option("--tftp-port", options.run.tftp_port,
                    "Where the TFTP server really listens: UDP port 69 of the device")
        ->check(CLI::Range(1, 65535));
    sub->add_option("--map-port", options.run.port_maps,
                    "A=B: what the device sends to TCP port A, of whatever address, goes to port B "
                    "of this machine; may be repeated")
        ->allow_extra_args(false)
        ->check(check_port_map);
    sub->add_option("--map-host", options.run.host_maps,
                    "NAME=ADDRESS: the host NAME, or the address, is ADDRESS; may be repeated")
        ->allow_extra_args(false)
        ->check(check_host_map);
    sub->add_flag("--real-network", options.run.real_network,
                  "Addresses and names that nothing maps are those of the real network, not "
                  "unreachable");
}

void add_playing_options(CLI::App *sub, command_options &options)
{
    sub->add_flag("--fast", options.run.fast, "Count sleeps and vain waits instead of waiting");
    sub->add_option("--fault", options.run.faults, "Play a fault (below); may be repeated")
        ->allow_extra_args(false);
    sub->add_option("--seed", options.run.seed, "For what a fault leaves open");
    sub->footer(fault_help());
}

void add_jobs(CLI::App *sub, command_options &options, const char *what)
{
    sub->add_option("--jobs", options.jobs, what)->check(CLI::Range(1, 256));
}

void describe_rehearse(CLI::App *sub, command_options &options)
{
    rehearse_options &rehearse = options.rehearse;
    sub->add_option("PACKAGE", rehearse.package, "The package")->required();
    sub->add_option("--device", rehearse.devices, "A device's description; may be repeated")
        ->required()
        ->allow_extra_args(false);
    sub->add_option("--key-file", rehearse.key_file,
                    "The key of devices whose description has none");
    sub->add_option("--from", rehearse.older, "A package that the devices hold before");
    sub->add_flag("--sweep", rehearse.sweep, "Also cut the power after every flash write");
    sub->add_flag("--https", rehearse.https, "Serve by HTTPS, with a certificate of this run");
    sub->add_option("--expect", rehearse.expect,
                    "What the devices must come to: upgraded, refused, or a file that says it for "
                    "each (default: what fwpkg plan says)");
    sub->add_option("--junit", options.junit_file, "Write the result as JUnit's XML");
    add_jobs(sub, options, "Runs at a time (default: 2 a core; 16, where they really wait)");
    add_playing_options(sub, options);
    add_program_options(sub, options);
}

void describe_init(CLI::App &init, command_options &options)
{
    add_folder(&init, options);
    init.add_option("--device", options.device_file,
                    "The device's description, a TOML file (default: a small device)");
    init.add_option_function<std::vector<std::string>>(
            "--flash",
            [&options](const std::vector<std::string> &pairs) {
                for (const std::string &pair : pairs)
                    if (const std::string fault = add_dump(options.dumps, pair); !fault.empty())
                        throw CLI::ValidationError("--flash", fault);
            },
            "N=DUMP: partition N holds the dump; may be repeated")
        ->allow_extra_args(false);
}

void describe_status(CLI::App &status, command_options &options, command &chosen)
{
    static doctor::package_options packages;
    add_folder(&status, options);
    doctor::add_package_options(status, packages);
    status.add_flag("--json", options.json, "Print JSON");
    status.callback([&] {
        chosen = status_command;
        options.packages = doctor::package_choices(status, packages);
    });
}

void describe(CLI::App &app, command_options &options, command &chosen)
{
    app.require_subcommand(1);
    const auto add = [&](const char *name, const char *what, command run) {
        CLI::App *sub = app.add_subcommand(name, what);
        sub->callback([&chosen, run] { chosen = run; });
        return sub;
    };
    describe_init(*add("init", "Make a device folder", init_command), options);
    describe_status(
        *add("status", "Judge a device's partitions, as fwdoctor flash does", status_command),
        options, chosen);

    CLI::App *run = add("run", "Run an upgrade on a device", run_command);
    add_run_options(run, options);
    add_playing_options(run, options);
    run->add_option_function<std::vector<std::string>>(
           "--receiver",
           [&options](const std::vector<std::string> &pairs) {
               for (const std::string &pair : pairs)
                   options.run.receivers[pair[0] - '0'] = pair.substr(2);
           },
           "N=PATH: status receiver N (1 .upgrd_info, 2 .syscfg-server) is who listens on PATH")
        ->allow_extra_args(false)
        ->check(check_receiver);
    run->add_option("--log", options.log_file, "Write each operation as a line of JSON");
    run->add_option(
        "--stdout", options.run.stdout_file,
        "For the program's standard output (default: DIR/run/stdout; - lets it through)");
    run->add_option(
        "--stderr", options.run.stderr_file,
        "For the program's standard error (default: DIR/run/stderr; - lets it through)");

    CLI::App *sweep = add(
        "sweep", "Cut the power after every flash write of an upgrade, and recover", sweep_command);
    add_run_options(sweep, options);
    add_jobs(sweep, options, "Runs at a time (default: one a core)");
    sweep
        ->add_option("--torn", options.torn,
                     "Cut inside each write, behind so many bytes, not behind it")
        ->check(CLI::Range(0, 4096));
    describe_rehearse(
        add("rehearse", "Try a package on every device, against its plan", rehearse_command),
        options);
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Runs upgrade on a simulated device that lives in a folder.", "simdev");
    command_options options;
    command chosen = nullptr;
    describe(app, options, chosen);
    return run_command_line(app, argc, argv, exit_runner_trouble, [&] { return chosen(options); });
}
