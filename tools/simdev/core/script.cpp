// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/script.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/device.h"
#include "tools/simdev/core/clock.h"
#include "tools/simdev/core/files.h"
#include "tools/simdev/core/log.h"
#include "tools/simdev/core/real.h"
#include "tools/simdev/core/watchdog.h"

namespace {

struct {
    real_path path;
    int64_t duration_us;
    char *const *environment;
} script_state;

// Only the table is new, and it is made here: the child after vfork may not write to memory.
char *const *clean_environment()
{
    static char *table[4096];
    size_t count = 0;
    for (char **entry = environ; *entry != nullptr && count + 1 < sizeof table / sizeof table[0];
         entry++)
        if (strncmp(*entry, "SIMDEV_", 7) != 0 && strncmp(*entry, "LD_PRELOAD=", 11) != 0)
            table[count++] = *entry;
    table[count] = nullptr;
    return table;
}

// Waits for the process as long as the watchdog lets it; it is ended with the device.
pid_t wait_for(pid_t pid, int *status, int options)
{
    if (!clock_runs() || watchdog_left_us() == INT64_MAX)
        return real.waitpid(pid, status, options);
    constexpr int64_t step_us = 10'000;
    for (;;) { // ends with the process or the watchdog
        const pid_t ended = real.waitpid(pid, status, options | WNOHANG);
        if (ended != 0 || (options & WNOHANG) != 0)
            return ended;
        if (watchdog_left_us() == 0)
            kill(pid, SIGKILL);
        advance(0);
        wait_really(std::min(step_us, watchdog_left_us()));
    }
}

} // namespace

void script_start(int64_t duration_us)
{
    put_into_folder(network_stop_script, script_state.path);
    script_state.duration_us = duration_us;
    script_state.environment = clean_environment();
}

pid_t sim_waitpid(pid_t pid, int *status, int options)
{
    int own_status = 0;
    const pid_t ended = wait_for(pid, &own_status, options);
    if (status != nullptr && ended > 0)
        *status = own_status;
    if (!clock_runs() || ended <= 0)
        return ended;
    sim_operation operation = make_operation(op_script, network_stop_script);
    const sim_fault *fault = find_fault(fault_script_hang);
    if (fault != nullptr) {
        operation.fault = fault_index(fault);
        log_operation(&operation); // without a result: there will be none
        hang(operation.fault);
    }
    spend(script_state.duration_us);
    operation.result = WIFEXITED(own_status) ? WEXITSTATUS(own_status) : 128 + WTERMSIG(own_status);
    operation.duration_us = script_state.duration_us;
    if (access(script_state.path, X_OK) != 0) { // the child ended without having run anything
        operation.result = -1;
        operation.error = errno;
    }
    log_operation(&operation);
    return ended;
}

int sim_execv(const char *path, char *const *arguments)
{
    if (!clock_runs())
        return execve(path, arguments, environ);
    const bool is_script = strcmp(path, network_stop_script) == 0;
    return execve(is_script ? script_state.path : path, arguments, script_state.environment);
}
