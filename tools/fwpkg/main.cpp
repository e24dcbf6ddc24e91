// SPDX-License-Identifier: GPL-2.0-or-later
//
// The command line of fwpkg.
#include <algorithm>

#include "tools/common/command_line.h"
#include "tools/common/near_word.h"
#include "tools/fwpkg/commands.h"

namespace {

using namespace fwpkg;

/// Adds commands and options to the grammar.
struct grammar {
    command_line &line;
    command_options &options;

    /// `examples` are lines, each indented by two; `good` and `bad` say what the exit statuses 0
    /// and 1 mean.
    [[nodiscard]] command add(const char *name, const char *what,
                              int (*run)(const command_options &options), const char *examples,
                              const char *good, const char *bad) const
    {
        const command sub = line.add(name, what, [&from = options, run] { return run(from); });
        sub.footer(std::string("Examples:\n") + examples + "Exit status:\n  0  " + good +
                   "\n  1  " + bad +
                   "\n  2  trouble: wrong usage, a mistake in a description, a file or a key "
                   "that cannot be read");
        return sub;
    }
    static void add_file(const command &sub, const char *name, std::filesystem::path &to,
                         const char *what)
    {
        sub.add(name, to, what).required().type_name("");
    }
    static void add_key(const command &sub, const char *name, std::filesystem::path &to,
                        const char *what = "The key; one newline at the end is not part of it")
    {
        sub.add(name, to, what).type_name("FILE");
    }
    command_option add_device(const command &sub, const char *what) const
    {
        return sub.add("--device", options.devices, what).type_name("FILE").repeated();
    }
    void add_json(const command &sub) const
    {
        sub.add_flag("--json", options.json, "Print JSON");
    }
    void add_making() const;
    void add_looking() const;
    void add_judging() const;
};

void grammar::add_making() const
{
    const command make =
        add("make", "Make a package from its manifest", make_command,
            "  fwpkg make manifest.toml -o flash.pkg --key-file vendor.key\n"
            "  fwpkg make manifest.toml -o - --json 2>flash.json | ssh server 'cat >flash.pkg'\n",
            "made", "made, and a --device would not take it");
    add_file(make, "MANIFEST", options.file, "The manifest, a TOML file; - for standard input");
    make.add("-o,--output", options.output,
             "The package to write; - for standard output, the report then goes to "
             "standard error")
        .required()
        .type_name("FILE");
    add_key(make, "--key-file", options.key_file);
    add_device(make, "A device that the package is for; may be repeated");
    add_json(make);

    const command extract =
        add("extract", "Put the data of a package's parts back into files", extract_command,
            "  fwpkg extract flash.pkg parts --key-file vendor.key\n", "extracted",
            "the package is wrong, and nothing extracted");
    add_file(extract, "FILE", options.file, "The package; - for standard input");
    add_file(extract, "DIR", options.output, "The folder for the files");
    add_key(extract, "--key-file", options.key_file);
    add_json(extract);
}

void grammar::add_looking() const
{
    const command show = add("show", "Show what a package holds, and its sums", show_command,
                             "  fwpkg show flash.pkg --key-file vendor.key\n", "shown",
                             "shown as far as it can be read");
    add_file(show, "FILE", options.file, "The package; - for standard input");
    add_key(show, "--key-file", options.key_file);
    add_json(show);

    const command diff = add("diff", "Say what differs between two packages", diff_command,
                             "  fwpkg diff old.pkg new.pkg --key-file vendor.key\n"
                             "  fwpkg diff old.pkg new.pkg --device rev1.toml --json\n",
                             "the same, byte for byte", "they differ");
    add_file(diff, "BEFORE", options.file, "The one package; - for standard input");
    add_file(diff, "AFTER", options.after, "The other");
    add_key(diff, "--key-file", options.key_file);
    add_key(diff, "--key-file-after", options.key_file_after,
            "The key of AFTER, where it has another");
    add_device(diff, "Say what this device would write differently; may be repeated");
    add_json(diff);

    const command condition = add("condition", "Compile and explain a condition", condition_command,
                                  "  fwpkg condition 'ram:>=64 & board=rev2' ram=128 board=rev1\n",
                                  "holds", "does not hold");
    condition.add("TEXT", options.condition, "The condition").required().type_name("");
    condition.add("VALUES", options.values, "NAME=VALUE: what the device has").type_name("");
    add_json(condition);
}

void grammar::add_judging() const
{
    const command check =
        add("check", "Judge a package: what devices check, and what they trust", check_command,
            "  fwpkg check flash.pkg --key-file vendor.key\n"
            "  fwpkg check flash.pkg --strict --device rev1.toml --device rev2.toml\n",
            "sound", "errors, or warnings with --strict");
    add_file(check, "FILE", options.file, "The package; - for standard input");
    add_key(check, "--key-file", options.key_file);
    add_device(check, "A device that must take the package; may be repeated");
    check.add_flag("--strict", options.strict, "Warnings fail, too");
    add_json(check);

    const command plan = add(
        "plan", "Say what an upgrade would do to each device, and why", plan_command,
        "  fwpkg plan flash.pkg --device rev1.toml --device rev2.toml\n"
        "  fwpkg plan flash.pkg --device rev1.toml --expect upgraded\n",
        "planned; with --expect: as expected", "a device comes to something else than --expect");
    add_file(plan, "FILE", options.file, "The package; - for standard input");
    add_device(plan, "A device's description, its keys included; may be repeated").required();
    plan.add_flag("--details", options.details,
                  "All comparisons and sizes, also for more than three devices");
    plan.add("--expect", options.expect, "What every device must come to")
        .type_name("upgraded|refused")
        .check([](const std::string &word) {
            const std::vector<std::string> known = {"upgraded", "refused"};
            return std::ranges::find(known, word) != known.end()
                       ? std::string()
                       : "\"" + word + "\" is not upgraded or refused" +
                             near_word_hint(word, known);
        });
    add_json(plan);
}

} // namespace

int main(int argc, char **argv)
{
    command_line line("fwpkg", "Makes, shows and checks firmware packages.",
                      "Examples:\n  fwpkg make manifest.toml -o flash.pkg\n  fwpkg check --help\n"
                      "Exit status:\n  0  done, and as it should be\n"
                      "  1  done, and the answer is no\n"
                      "  2  trouble: wrong usage, a mistake in a description, a file or a key "
                      "that cannot be read");
    command_options options;
    const grammar rules{line, options};
    rules.add_making();
    rules.add_looking();
    rules.add_judging();
    return line.run(argc, argv, exit_trouble);
}
