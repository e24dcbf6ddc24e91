// SPDX-License-Identifier: GPL-2.0-or-later
//
// The command line of fwpkg.
#include <CLI/CLI.hpp>

#include "tools/common/command_line.h"
#include "tools/fwpkg/commands.h"

namespace {

using namespace fwpkg;

using command = int (*)(const command_options &options);

/// The command line's grammar; `chosen` becomes the command that it names.
void describe(CLI::App &app, command_options &options, command &chosen)
{
    app.require_subcommand(1);
    const auto add = [&](const char *name, const char *what, const char *example, command run) {
        CLI::App *sub = app.add_subcommand(name, what);
        sub->footer(std::string("Example:\n  ") + example);
        sub->callback([&chosen, run] { chosen = run; });
        return sub;
    };
    const auto add_package = [&](CLI::App *sub) {
        sub->add_option("FILE", options.file, "The package")->required();
    };
    const auto add_key = [&](CLI::App *sub) {
        sub->add_option("--key-file", options.key_file,
                        "File with the key; one newline at its end is not part of it");
    };
    const auto add_json = [&](CLI::App *sub) {
        sub->add_flag("--json", options.json, "Print JSON");
    };

    const auto add_device = [&](CLI::App *sub, const char *what) {
        return sub->add_option("--device", options.devices, what)->allow_extra_args(false);
    };

    CLI::App *make =
        add("make", "Make a package from its manifest",
            "fwpkg make manifest.toml -o flash.pkg --key-file vendor.key", make_command);
    make->add_option("MANIFEST", options.file, "The manifest, a TOML file")->required();
    add_device(make, "A device whose partitions the parts should fit");
    make->add_option("-o,--output", options.output, "The package to write")->required();
    add_key(make);

    CLI::App *show = add("show", "Show what a package holds",
                         "fwpkg show flash.pkg --key-file vendor.key", show_command);
    add_package(show);
    add_key(show);
    add_json(show);

    CLI::App *check = add("check", "Judge a package: what devices check, and what they trust",
                          "fwpkg check flash.pkg --key-file vendor.key", check_command);
    add_package(check);
    add_key(check);
    add_device(check, "A device whose partitions the parts should fit");
    add_json(check);

    CLI::App *plan = add("plan", "Say what an upgrade would do to each device, and why",
                         "fwpkg plan flash.pkg --device a.toml --device b.toml", plan_command);
    add_package(plan);
    add_device(plan, "A device's description, its keys included")->required();
    add_json(plan);

    CLI::App *condition =
        add("condition", "Compile and explain a condition",
            "fwpkg condition 'ram:>=64 & board=rev2' ram=128 board=rev1", condition_command);
    condition->add_option("TEXT", options.condition, "The condition")->required();
    condition->add_option("VALUES", options.values, "NAME=VALUE: what the device has");

    CLI::App *extract = add("extract", "Put the data of a package's parts back into files",
                            "fwpkg extract flash.pkg parts --key-file vendor.key", extract_command);
    add_package(extract);
    extract->add_option("DIR", options.output, "The folder for the files")->required();
    add_key(extract);
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app("Makes, shows and checks firmware packages.", "fwpkg");
    command_options options;
    command chosen = nullptr;
    describe(app, options, chosen);
    return run_command_line(app, argc, argv, exit_trouble, [&] { return chosen(options); });
}
