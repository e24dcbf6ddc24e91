// SPDX-License-Identifier: GPL-2.0-or-later
//
// How the host tools take a command line apart, run a command and report what ends it: one line on
// standard error, with the program's name in front.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/common/failure.h"

namespace CLI {
class App;
class Option;
} // namespace CLI

/// An option or an argument of a command. What is called on it says more of it.
class command_option {
public:
    explicit command_option(CLI::Option *option) : option_(option) {}

    const command_option &required() const;
    const command_option &type_name(const char *name) const; ///< what --help calls the value
    const command_option &show_default() const;              ///< in --help

    /// May be repeated with a value each time, and not followed by several.
    const command_option &repeated() const;
    const command_option &excludes(const command_option &other) const;
    const command_option &range(int64_t least, int64_t most) const;

    /// `fault` says what is wrong with a value; empty for nothing.
    const command_option &
    check(const std::function<std::string(const std::string &value)> &fault) const;

private:
    CLI::Option *option_;
};

/// A command of a program, with the options and arguments that it takes.
class command {
public:
    explicit command(CLI::App *app) : app_(app) {}

    command_option add_flag(const char *names, bool &to, const char *what) const;

    /// "-o,--output" is an option, "FILE" an argument. `to` is a text, a path, a list of either,
    /// which takes several values, an int, an int64_t or a uint64_t; it outlives the parsing.
    template<typename type> command_option add(const char *names, type &to, const char *what) const;

    /// A repeated option. `take` is called for each value and returns what is wrong with it; empty
    /// for nothing.
    command_option add_each(const char *name,
                            const std::function<std::string(const std::string &value)> &take,
                            const char *what) const;

    void footer(const std::string &text) const; ///< below the options in --help
    void hide() const;                          ///< from --help of the program

    /// Which options the line has, "--name" each, in its order.
    [[nodiscard]] std::vector<std::string> order() const;

private:
    CLI::App *app_;
};

/// The command line of a program whose first word is a command.
class command_line {
public:
    command_line(const char *program, const char *what, const char *footer = "");
    ~command_line();

    /// `run` returns the exit status, or throws.
    command add(const char *name, const char *what, const std::function<int()> &run);

    /// Parses the line (a word that it does not know is named, and the near one suggested), runs
    /// its command and flushes standard output. Returns the exit status: that of the command or of
    /// the failure that it threw; 0 where the user asked for help; `trouble_status` in the place of
    /// exit_trouble, and for a wrong command line, output that cannot be written, and whatever else
    /// is thrown.
    int run(int argc, char **argv, int trouble_status);

private:
    std::unique_ptr<CLI::App> app_;
    std::function<int()> chosen_;
};
