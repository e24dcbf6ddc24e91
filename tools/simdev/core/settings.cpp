// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/settings.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tools/simdev/core/real.h"
#include "tools/simdev/core/sim.h"

namespace {

constexpr int exit_unusable = 125;

int log_fd = -1;

void write_record(void * /*argument*/, const sim_operation *operation)
{
    // A lost record is noticed by the one who reads them: the numbers have a gap.
    (void)!real.write(log_fd, operation, sizeof *operation);
}

const char *get(setting_index setting)
{
    const char *value = getenv(setting_names[setting]);
    return value == nullptr ? "" : value;
}

} // namespace

void sim_start_from_environment()
{
    if (getenv(setting_names[setting_folder]) == nullptr)
        return;
    sim_config config;
    config.folder = get(setting_folder);
    config.fast = get(setting_fast)[0] == '1';
    config.grace_ms = atoi(get(setting_grace_ms));
    config.ports = get(setting_ports);
    config.hosts = get(setting_hosts);
    config.real_network = get(setting_real_network)[0] == '1';
    config.faults = get(setting_faults);
    config.receivers = get(setting_receivers);
    config.seed = strtoull(get(setting_seed), nullptr, 10);
    config.script_us = strtoll(get(setting_script_us), nullptr, 10);
    config.sink = write_record;
    log_fd = atoi(get(setting_log_fd));
    fcntl(log_fd, F_SETFD, FD_CLOEXEC); // not for the script
    char error[512];
    if (sim_start(&config, error, sizeof error) == 0) {
        sim_operation operation = make_operation(op_start, nullptr);
        log_operation(&operation);
        if (get(setting_quiet)[0] == '1')
            log_start(nullptr, nullptr);
        return;
    }
    (void)!real.write(STDERR_FILENO, error, strlen(error));
    (void)!real.write(STDERR_FILENO, "\n", 1);
    syscall(SYS_exit_group, exit_unusable);
}
