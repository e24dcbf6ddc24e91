// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/common/command_line.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <filesystem>
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

const command_option &command_option::required() const
{
    option_->required();
    return *this;
}

const command_option &command_option::type_name(const char *name) const
{
    option_->type_name(name);
    return *this;
}

const command_option &command_option::show_default() const
{
    option_->capture_default_str();
    return *this;
}

const command_option &command_option::repeated() const
{
    option_->allow_extra_args(false);
    return *this;
}

const command_option &command_option::excludes(const command_option &other) const
{
    option_->excludes(other.option_);
    return *this;
}

const command_option &command_option::range(int64_t least, int64_t most) const
{
    option_->check(CLI::Range(least, most));
    return *this;
}

const command_option &
command_option::check(const std::function<std::string(const std::string &value)> &fault) const
{
    option_->check(fault);
    return *this;
}

command_option command::add_flag(const char *names, bool &to, const char *what) const
{
    return command_option(app_->add_flag(names, to, what));
}

template<typename type>
command_option command::add(const char *names, type &to, const char *what) const
{
    return command_option(app_->add_option(names, to, what));
}

template command_option command::add(const char *, std::string &, const char *) const;
template command_option command::add(const char *, std::filesystem::path &, const char *) const;
template command_option command::add(const char *, std::vector<std::string> &, const char *) const;
template command_option command::add(const char *, std::vector<std::filesystem::path> &,
                                     const char *) const;
template command_option command::add(const char *, int &, const char *) const;
template command_option command::add(const char *, int64_t &, const char *) const;
template command_option command::add(const char *, uint64_t &, const char *) const;

command_option command::add_each(const char *name,
                                 const std::function<std::string(const std::string &value)> &take,
                                 const char *what) const
{
    const auto take_all = [name, take](const std::vector<std::string> &values) {
        for (const std::string &value : values)
            if (const std::string fault = take(value); !fault.empty())
                throw CLI::ValidationError(name, fault);
    };
    CLI::Option *option = app_->add_option_function<std::vector<std::string>>(name, take_all, what);
    option->allow_extra_args(false);
    return command_option(option);
}

void command::footer(const std::string &text) const
{
    app_->footer(text);
}

void command::hide() const
{
    app_->group("");
}

std::vector<std::string> command::order() const
{
    std::vector<std::string> names;
    for (const CLI::Option *option : app_->parse_order())
        names.push_back(option->get_name());
    return names;
}

command_line::command_line(const char *program, const char *what, const char *footer)
    : app_(std::make_unique<CLI::App>(what, program))
{
    app_->require_subcommand(1);
    app_->footer(footer);
}

command_line::~command_line() = default;

command command_line::add(const char *name, const char *what, const std::function<int()> &run)
{
    CLI::App *made = app_->add_subcommand(name, what);
    made->callback([this, run] { chosen_ = run; });
    return command(made);
}

int command_line::run(int argc, char **argv, int trouble_status)
{
    CLI::App &app = *app_;
    occupy_standard_descriptors();
    app.set_version_flag("-V,--version", app.get_name() + " " + UPGRADE_VERSION,
                         "Print the version and exit");
    format_plainly(app);
    try {
        int status = 0;
        try {
            app.parse(argc, argv);
            status = chosen_();
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
