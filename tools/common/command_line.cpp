// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/common/command_line.h"

#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

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
        return report(app, std::runtime_error(std::string(error.what()) + " (see --help)"),
                      trouble_status);
    } catch (const failure &error) {
        return report(app, error, error.status == exit_trouble ? trouble_status : error.status);
    } catch (const std::exception &error) {
        return report(app, error, trouble_status);
    }
}
