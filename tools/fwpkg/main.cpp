// SPDX-License-Identifier: GPL-2.0-or-later
//
// The command line of fwpkg.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

#include "tools/fwpkg/commands.h"
#include "tools/fwpkg/failure.h"
#include "tools/fwpkg/text.h"

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

    CLI::App *make =
        add("make", "Make a package from its manifest",
            "fwpkg make manifest.toml -o flash.pkg --key-file vendor.key", make_command);
    make->add_option("MANIFEST", options.file, "The manifest, a TOML file")->required();
    make->add_option("-o,--output", options.output, "The package to write")->required();
    add_key(make);

    CLI::App *show = add("show", "Show what a package holds",
                         "fwpkg show flash.pkg --key-file vendor.key", show_command);
    add_package(show);
    add_key(show);
    add_json(show);
}

int run(int argc, char **argv)
{
    CLI::App app("Makes, shows and checks firmware packages.", "fwpkg");
    command_options options;
    command chosen = nullptr;
    describe(app, options, chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? exit_sound : exit_unreadable;
    }
    int status = chosen(options);
    if (fflush(stdout) != 0)
        throw failure("cannot write the output", exit_unreadable);
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const failure &error) {
        fflush(stdout);
        fprintf(stderr, "fwpkg: %s\n", printable(error.what()).c_str());
        return error.status;
    } catch (const std::exception &error) {
        fprintf(stderr, "fwpkg: %s\n", error.what());
        return exit_unreadable;
    }
}
