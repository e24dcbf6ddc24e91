// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/launch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/common/files.h"
#include "tools/simdev/core/faults.h"
#include "tools/simdev/core/settings.h"
#include "tools/simdev/folder.h"
#include "tools/simdev/kept_output.h"
#include "tools/simdev/locate.h"
#include "tools/simdev/receiver_links.h"
#include "tools/simdev/work.h"

namespace simdev {

namespace fs = std::filesystem;

namespace {

constexpr rlim_t highest_descriptor = 1000; // out of the way of what the program numbers
constexpr int exit_not_started = 126;

[[noreturn]] void fail_with_errno(const std::string &what)
{
    throw failure(what + ": " + strerror(errno));
}

/// The program's descriptor of the log; the one below it is that of the preloaded library.
int log_descriptor()
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        fail_with_errno("no limit of descriptors");
    return static_cast<int>(std::min(highest_descriptor, limit.rlim_cur - 1));
}

std::string joined(std::string list, const std::string &prefix,
                   const std::vector<std::string> &texts)
{
    for (const std::string &text : texts)
        list += prefix + text + ",";
    return list;
}

/// The model's settings, as the environment has them.
std::array<std::string, setting_count> make_settings(const run_options &options,
                                                     const device_script &script,
                                                     const std::string &foreign_receivers)
{
    const std::string tftp =
        options.tftp_port > 0 ? "udp:69=" + std::to_string(options.tftp_port) + "," : "";
    std::string faults;
    for (const std::string &fault : options.faults)
        faults += fault + ";";
    return {
        fs::absolute(options.folder).string(),
        options.fast ? "1" : "0",
        std::to_string(options.grace_ms),
        joined(tftp, "tcp:", options.port_maps),
        joined("", "", options.host_maps),
        options.real_network ? "1" : "0",
        faults,
        foreign_receivers,
        std::to_string(options.seed),
        std::to_string(std::llround(script.seconds * 1e6)),
        std::to_string(log_descriptor()),
        options.quiet ? "1" : "0",
    };
}

/// The program's environment: ours, without other devices' requirements.
std::vector<std::string> make_environment(const run_options &options, bool preloads,
                                          const std::string &foreign_receivers)
{
    const device described = read_folder(options.folder);
    std::vector<std::string> environment;
    for (char **entry = environ; *entry != nullptr; entry++) {
        const std::string text = *entry;
        const std::string name = text.substr(0, text.find('='));
        if (!name.ends_with("_features") && !name.starts_with("SIMDEV_") && name != "LD_PRELOAD" &&
            name != "ASAN_OPTIONS" && name != "UBSAN_OPTIONS")
            environment.push_back(text);
    }
    for (const auto &[type, condition] : described.requirements)
        environment.push_back(requirement_variable(type) + "=" + condition);
    const auto settings = make_settings(options, described.script, foreign_receivers);
    for (size_t index = 0; index < settings.size(); index++)
        environment.push_back(setting_names.at(index) + ("=" + settings.at(index)));
    if (preloads) {
        // By its descriptor: blanks and colons of a path would end its name.
        environment.push_back("LD_PRELOAD=/proc/self/fd/" + std::to_string(log_descriptor() - 1));
    } else {
        // The program keeps its memory to its end by design; a finding has a status of its own.
        environment.emplace_back("ASAN_OPTIONS=detect_leaks=0:exitcode=99");
        environment.emplace_back("UBSAN_OPTIONS=print_stacktrace=1:exitcode=99");
    }
    return environment;
}

std::vector<char *> pointers(std::vector<std::string> &texts)
{
    std::vector<char *> result;
    for (std::string &text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

int open_output(const fs::path &path, int own)
{
    if (path == "-")
        return fcntl(own, F_DUPFD_CLOEXEC, 3);
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0)
        fail_with_errno(path.string());
    return fd;
}

fs::path stdout_path(const run_options &options)
{
    return options.stdout_file.empty() ? options.folder / "run/stdout"
                                       : fs::path(options.stdout_file);
}

/// Gives `fd`, where there is one, to the program as `number`.
bool place(int fd, int number)
{
    return fd < 0 || (fd == number ? fcntl(fd, F_SETFD, 0) : dup2(fd, number)) >= 0;
}

/// All that is needed to become the program, made before there is another process.
struct prepared_program {
    fs::path path;
    std::vector<std::string> arguments;
    std::vector<std::string> environment;
    descriptor output;
    descriptor error;
    descriptor library; // -1: none
    std::array<bool, 3> closed;
    std::vector<char *> argument_table = pointers(arguments);
    std::vector<char *> environment_table = pointers(environment);

    /// In the new process, with the end of the pipe that operations are written to.
    [[noreturn]] void become(int log) const
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // nothing is left running when simdev is killed
        signal(SIGINT, SIG_DFL);
        signal(SIGTERM, SIG_DFL);
        dup2(output.get(), STDOUT_FILENO);
        dup2(error.get(), STDERR_FILENO);
        // Without the library it would run on the machine itself. First, in case that its
        // descriptor has the log's number.
        if (!place(library.get(), log_descriptor() - 1) || !place(log, log_descriptor()))
            _exit(exit_not_started);
        for (int fd = 0; fd < 3; fd++)
            if (closed[static_cast<size_t>(fd)])
                close(fd);
        execve(path.c_str(), argument_table.data(), environment_table.data());
        _exit(exit_not_started);
    }
};

/// Which of the standard streams the faults close, which is up to simdev. Throws failure for a
/// fault that is none.
std::array<bool, 3> closed_streams(const std::vector<std::string> &faults)
{
    std::array<bool, 3> closed = {};
    for (const std::string &text : faults) {
        sim_fault fault = {};
        char error[512];
        if (fault_parse(text.c_str(), &fault, error, sizeof error) < 0)
            throw failure(error);
        if (fault.kind == fault_closed)
            closed.at(static_cast<size_t>(fault.place)) = true;
    }
    return closed;
}

/// Hands the program's operations on until the pipe ends, which is when it has ended. Their number.
uint64_t follow(pid_t pid, int pipe, kept_output &said, const run_listener &listener)
{
    uint64_t count = 0;
    // Each is written at once, and a pipe tears nothing that is so short: as many as there are
    // come.
    static_assert(sizeof(sim_operation) <= PIPE_BUF);
    std::array<sim_operation, 128> operations;
    pollfd waited = {pipe, POLLIN, 0};
    for (bool told = false;;) { // ends with the pipe
        if (is_interrupted() && !told) {
            kill(pid, SIGTERM);
            told = true;
        }
        if (poll(&waited, 1, -1) < 0)
            continue; // a signal: looked at above
        const ssize_t size = read(pipe, operations.data(), sizeof operations);
        if (size <= 0)
            return count;
        for (size_t at = 0; at < static_cast<size_t>(size) / sizeof(sim_operation); at++) {
            if (operations.at(at).n != ++count)
                throw failure("operation " + std::to_string(count) + " is missing");
            if (listener)
                listener(operations.at(at));
        }
        said.free_middle();
    }
}

/// Waits for the program's end; its status.
int wait_for(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        // asked again
    }
    return status;
}

[[noreturn]] void fail_without_log(const run_options &options, const fs::path &program,
                                   int exit_status)
{
    if (exit_status == exit_not_started)
        throw failure(program.string() + ": cannot be started");
    if (const auto said = stderr_lines(options);
        exit_status == exit_runner_trouble && !said.empty())
        throw failure(said.front()); // the model has refused its settings
    throw failure(program.string() + ": did not load the simulation's library (see " +
                  stderr_path(options).string() + ")");
}

} // namespace

fs::path stderr_path(const run_options &options)
{
    return options.stderr_file.empty() ? options.folder / "run/stderr"
                                       : fs::path(options.stderr_file);
}

bool is_stderr_kept(const run_options &options)
{
    std::error_code error;
    return options.stderr_file != "-" && fs::is_regular_file(stderr_path(options), error);
}

std::vector<std::string> stderr_lines(const run_options &options)
{
    std::vector<std::string> lines;
    std::istringstream said(is_stderr_kept(options) ? read_text(stderr_path(options)) : "");
    for (std::string line; std::getline(said, line);)
        if (!line.empty())
            lines.push_back(line);
    return lines;
}

run_outcome run_program(const run_options &options, const run_listener &listener)
{
    const fs::path program = options.program.empty() ? find_program() : options.program;
    const std::array<bool, 3> closed = closed_streams(options.faults);
    const fs::path library = find_preload(program);
    const receiver_links receivers(options.folder, options.receivers);
    std::vector<std::string> arguments = {"upgrade"};
    arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
    const prepared_program prepared = {
        program,
        arguments,
        make_environment(options, !library.empty(), receivers.foreign),
        descriptor(open_output(stdout_path(options), STDOUT_FILENO)),
        descriptor(open_output(stderr_path(options), STDERR_FILENO)),
        descriptor(library.empty() ? -1 : open(library.c_str(), O_RDONLY | O_CLOEXEC)),
        closed,
    };
    if (!library.empty() && prepared.library.get() < 0)
        fail_with_errno(library.string());
    std::array<int, 2> pipe_ends = {-1, -1};
    if (pipe2(pipe_ends.data(), O_CLOEXEC) < 0)
        fail_with_errno("no pipe");
    const descriptor log(pipe_ends[0]);
    descriptor log_input(pipe_ends[1]);

    const int64_t started_us = steady_us();
    const pid_t pid = fork();
    if (pid < 0)
        fail_with_errno("no process");
    if (pid == 0)
        prepared.become(log_input.get());
    log_input.close();
    // Of a file that somebody names he wants all.
    kept_output said(stderr_path(options), options.stderr_file.empty() ? prepared.error.get() : -1);
    uint64_t count = 0;
    try {
        count = follow(pid, log.get(), said, listener);
    } catch (...) {
        kill(pid, SIGKILL);
        wait_for(pid);
        throw;
    }
    const int status = wait_for(pid);
    said.finish();
    run_outcome outcome;
    outcome.real_us = steady_us() - started_us;
    outcome.interrupted = is_interrupted();
    if (WIFSIGNALED(status))
        outcome.signal = WTERMSIG(status);
    outcome.exit_status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    if (count == 0 && !outcome.interrupted)
        fail_without_log(options, program, outcome.exit_status);
    return outcome;
}

} // namespace simdev
