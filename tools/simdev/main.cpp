// SPDX-License-Identifier: GPL-2.0-or-later
//
// The command line of simdev.
#include <CLI/CLI.hpp>

#include "tools/common/command_line.h"
#include "tools/simdev/commands.h"
#include "tools/simdev/core/faults.h"
#include "tools/simdev/failure.h"

namespace {

using namespace simdev;

using command = int (*)(const command_options &options);

std::string fault_help()
{
    std::string text = "Faults:\n";
    for (const fault_description &fault : fault_descriptions)
        text += std::string("  ") + fault.form + "\n      " + fault.text + "\n";
    return text;
}

void add_folder(CLI::App *sub, command_options &options)
{
    sub->add_option("DIR", options.run.folder, "The device folder")->required();
}

/// What all commands that run the program take.
void add_run_options(CLI::App *sub, command_options &options)
{
    add_folder(sub, options);
    sub->add_option("URL", options.run.arguments, "The program's arguments, behind \"--\"");
    sub->add_option("--program", options.run.program,
                    "The program to run (default: the upgrade beside simdev)");
    sub->add_option("--tftp-port", options.run.tftp_port,
                    "Where the TFTP server really listens: UDP port 69 of the device")
        ->check(CLI::Range(1, 65535));
    sub->add_option("--map-port", options.run.port_maps,
                    "A=B: what the device sends to TCP port A goes to B; may be repeated")
        ->allow_extra_args(false);
    sub->add_option("--grace", options.run.grace_ms,
                    "Fast: real milliseconds that a peer may take to answer")
        ->check(CLI::Range(1, 3'600'000))
        ->capture_default_str();
    sub->add_flag("--json", options.json, "Print the report as JSON, and no progress");
}

void describe(CLI::App &app, command_options &options, command &chosen)
{
    app.require_subcommand(1);
    const auto add = [&](const char *name, const char *what, command run) {
        CLI::App *sub = app.add_subcommand(name, what);
        sub->callback([&chosen, run] { chosen = run; });
        return sub;
    };
    CLI::App *init = add("init", "Make a device folder", init_command);
    add_folder(init, options);
    init->add_option("--device", options.device_file,
                     "The device's description, a TOML file (default: a small device)");

    CLI::App *run = add("run", "Run an upgrade on a device", run_command);
    add_run_options(run, options);
    run->add_flag("--fast", options.run.fast, "Count sleeps and vain waits instead of waiting");
    run->add_option("--fault", options.run.faults, "Play a fault (below); may be repeated")
        ->allow_extra_args(false);
    run->add_option_function<std::vector<std::string>>(
           "--receiver",
           [&options](const std::vector<std::string> &pairs) {
               for (const std::string &pair : pairs)
                   options.run.receivers[pair[0] - '0'] = pair.substr(2);
           },
           "N=PATH: status receiver N (1 .upgrd_info, 2 .syscfg-server) is who listens on PATH")
        ->allow_extra_args(false)
        ->check([](const std::string &pair) {
            const bool right =
                pair.size() > 2 && (pair[0] == '1' || pair[0] == '2') && pair[1] == '=';
            return right ? "" : "\"" + pair + "\" is not 1=PATH or 2=PATH";
        });
    run->add_option("--seed", options.run.seed, "For what a fault leaves open");
    run->add_option("--log", options.log_file, "Write each operation as a line of JSON");
    run->add_option(
        "--stdout", options.run.stdout_file,
        "For the program's standard output (default: DIR/run/stdout; - lets it through)");
    run->add_option(
        "--stderr", options.run.stderr_file,
        "For the program's standard error (default: DIR/run/stderr; - lets it through)");
    run->footer(fault_help());

    CLI::App *sweep = add(
        "sweep", "Cut the power after every flash write of an upgrade, and recover", sweep_command);
    add_run_options(sweep, options);
    sweep->add_option("--jobs", options.jobs, "Runs at a time (default: one a core)")
        ->check(CLI::Range(1, 256));
    sweep
        ->add_option("--torn", options.torn,
                     "Cut inside each write, behind so many bytes, not behind it")
        ->check(CLI::Range(0, 4096));

    CLI::App *watchdog =
        add("watchdog", "Show how long an upgrade leaves the watchdog without a kick",
            watchdog_command);
    add_run_options(watchdog, options);
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Runs upgrade on a simulated device that lives in a folder.", "simdev");
    command_options options;
    command chosen = nullptr;
    describe(app, options, chosen);
    return run_command_line(app, argc, argv, exit_own_failure, [&] { return chosen(options); });
}
