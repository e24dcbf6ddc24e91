// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/common/command_line.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <span>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "tools/common/near_word.h"
#include "tools/common/printable.h"

namespace {

/// A file that was opened on a free standard descriptor would get what is printed. What is opened
/// here cannot be used the way the descriptor is, so that printing fails as it would have.
void occupy_standard_descriptors()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++)
        if (fcntl(fd, F_GETFD) < 0)
            open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY); // the lowest free one
}

/// --help without the library's "..." behind an option that is repeated as a whole: as if one
/// took several values.
class plain_formatter : public CLI::Formatter {
public:
    std::string make_option_opts(const CLI::Option *option) const override
    {
        std::string text = CLI::Formatter::make_option_opts(option);
        const size_t dots = text.find(" ...");
        if (dots != std::string::npos && !option->get_allow_extra_args() &&
            !option->get_positional())
            text.erase(dots, strlen(" ..."));
        return text;
    }
};

void format_plainly(CLI::App &app)
{
    const auto plain = std::make_shared<plain_formatter>();
    app.formatter(plain);
    for (CLI::App *command : app.get_subcommands([](CLI::App *) { return true; }))
        command->formatter(plain);
}

std::vector<std::string> option_names(const CLI::App &app)
{
    std::vector<std::string> names;
    for (const CLI::Option *option : app.get_options()) {
        for (const std::string &name : option->get_lnames())
            names.push_back("--" + name);
        for (const std::string &name : option->get_snames())
            names.push_back("-" + name);
    }
    return names;
}

/// What the line is about, once the library has refused it: the first word that is no command or
/// no option names itself, which the library's own text does not always do.
std::string wrong_word(const CLI::App &app, std::span<char *const> arguments)
{
    std::vector<std::string> commands;
    for (const CLI::App *command : app.get_subcommands([](const CLI::App *) { return true; }))
        commands.push_back(command->get_name());
    const CLI::App *chosen = &app;
    for (const std::string word : arguments) {
        if (word == "--")
            break;
        if (word.starts_with("-") && word.size() > 1) {
            const std::string name = word.substr(0, word[1] == '-' ? word.find('=') : 2);
            const std::vector<std::string> names = option_names(*chosen);
            if (std::ranges::find(names, name) == names.end())
                return "there is no option " + name + near_word_hint(name, names);
        } else if (chosen == &app && !commands.empty()) {
            if (std::ranges::find(commands, word) == commands.end())
                return "there is no command \"" + word + "\"" + near_word_hint(word, commands);
            chosen = app.get_subcommand(word);
        }
    }
    return {};
}

int report(const CLI::App &app, const std::exception &error, int status)
{
    fflush(stdout); // before the line that says why there is no more
    fprintf(stderr, "%s: %s\n", app.get_name().c_str(), printable(error.what()).c_str());
    return status;
}

} // namespace

int run_command_line(CLI::App &app, int argc, char **argv, int trouble_status,
                     const std::function<int()> &command)
{
    occupy_standard_descriptors();
    app.set_version_flag("-V,--version", app.get_name() + " " + UPGRADE_VERSION,
                         "Print the version and exit");
    format_plainly(app);
    try {
        int status = 0;
        try {
            app.parse(argc, argv);
            status = command();
        } catch (const CLI::Success &help) {
            status = app.exit(help);
        }
        if (fflush(stdout) != 0 || ferror(stdout) != 0)
            throw failure("cannot write the output");
        return status;
    } catch (const CLI::ParseError &error) {
        std::string text = wrong_word(app, {argv + 1, static_cast<size_t>(std::max(argc, 1)) - 1});
        if (text.empty())
            text = error.what();
        return report(app, std::runtime_error(text + " (see --help)"), trouble_status);
    } catch (const failure &error) {
        return report(app, error, error.status == exit_trouble ? trouble_status : error.status);
    } catch (const std::exception &error) {
        return report(app, error, trouble_status);
    }
}
