// SPDX-License-Identifier: GPL-2.0-or-later
//
// Sleeps, sync, and the script's process.
#include <cerrno>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/simdev/core/model.h"

namespace {

void log_sleep(int64_t microseconds)
{
    sim_operation operation = make_operation("sleep");
    operation.duration_us = microseconds;
    log_operation(&operation);
}

} // namespace

void sleep_really(int64_t microseconds)
{
    timespec rest = {static_cast<time_t>(microseconds / 1'000'000),
                     static_cast<long>(microseconds % 1'000'000 * 1000)};
    while (real.clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, &rest) == EINTR) {
        // goes on with what is left
    }
}

void sim_sync()
{
    // What the program wrote is in its file already; a real sync would wait for all of this
    // machine's disks.
    sim_operation operation = make_operation("sync");
    log_operation(&operation);
}

int sim_clock_nanosleep(clockid_t clock, int flags, const timespec *time, timespec *rest)
{
    if (!model.active || flags != 0)
        return real.clock_nanosleep(clock, flags, time, rest);
    const int64_t asked = to_us(time);
    int64_t slept = asked;
    timespec left = {};
    int result = 0;
    if (!model.fast) {
        result = real.clock_nanosleep(clock, 0, time, &left);
        if (result != 0)
            slept -= to_us(&left);
        if (rest != nullptr)
            *rest = left;
    }
    advance(slept);
    log_sleep(slept);
    return result;
}

int sim_nanosleep(const timespec *time, timespec *rest)
{
    const int result = sim_clock_nanosleep(CLOCK_REALTIME, 0, time, rest);
    if (result == 0)
        return 0;
    errno = result;
    return -1;
}

pid_t sim_waitpid(pid_t pid, int *status, int options)
{
    int own_status = 0;
    const pid_t ended = real.waitpid(pid, &own_status, options);
    if (status != nullptr && ended > 0)
        *status = own_status;
    if (!model.active || ended <= 0)
        return ended;
    if (find_fault(fault_script_hang, 1) != nullptr)
        hang(fault_descriptions[fault_script_hang].name);
    if (!model.fast)
        sleep_really(model.script_us);
    advance(model.script_us);
    sim_operation operation = make_operation("script");
    operation.target = model.script + strlen(model.folder);
    operation.result = WIFEXITED(own_status) ? WEXITSTATUS(own_status) : 128 + WTERMSIG(own_status);
    operation.duration_us = model.script_us;
    if (access(model.script, X_OK) != 0) { // the child ended without having run anything
        operation.result = -1;
        operation.error = errno;
    }
    log_operation(&operation);
    return ended;
}

int sim_execv(const char *path, char *const *arguments)
{
    if (!model.active)
        return execve(path, arguments, environ);
    const bool is_script = strcmp(path, model.script + strlen(model.folder)) == 0;
    return execve(is_script ? model.script : path, arguments, model.environment);
}
