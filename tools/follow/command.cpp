// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/command.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "tools/follow/texts.h"

namespace follow {

namespace {

constexpr int exit_not_started = 127;

void set_number(const char *name, int value)
{
    char text[16];
    snprintf(text, sizeof text, "%d", value);
    setenv(name, text, 1);
}

} // namespace

pid_t start_command(const char *command, const tracker *state)
{
    setenv("UPGRADE_OUTCOME", outcome_names[tracker_outcome(state)], 1);
    setenv("UPGRADE_ERROR", state->error.data(), 1);
    set_number("UPGRADE_STATUS", tracker_exit_status(state));
    set_number("UPGRADE_ATTEMPT", state->attempt);
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
    _exit(exit_not_started);
}

} // namespace follow
