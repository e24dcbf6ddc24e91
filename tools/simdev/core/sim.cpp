// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/sim.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tools/simdev/core/clock.h"
#include "tools/simdev/core/descriptors.h"
#include "tools/simdev/core/files.h"
#include "tools/simdev/core/network.h"
#include "tools/simdev/core/partitions.h"
#include "tools/simdev/core/peer.h"
#include "tools/simdev/core/real.h"
#include "tools/simdev/core/receivers.h"
#include "tools/simdev/core/script.h"
#include "tools/simdev/core/watchdog.h"

namespace {

int folder_fd = -1;

// Opens the folder out of the way of what the program numbers.
int open_folder(const char *folder)
{
    constexpr int high_descriptor = 900;
    const int fd = real.open64(folder, O_PATH | O_DIRECTORY | O_CLOEXEC);
    const int high = fd < 0 ? -1 : fcntl(fd, F_DUPFD_CLOEXEC, high_descriptor);
    if (high < 0)
        return fd;
    real.close(fd);
    return high;
}

void write_record(void *argument, const sim_operation *operation)
{
    // A lost record is noticed by the one who reads them: the numbers have a gap.
    (void)!real.write(*static_cast<const int *>(argument), operation, sizeof *operation);
}

} // namespace

int sim_start(const sim_settings &settings, sim_sink sink, void *argument, char *error,
              size_t error_size)
{
    const char *folder = settings[setting_folder];
    const auto number = [&settings](setting_index setting) {
        return strtoull(settings[setting], nullptr, 10);
    };
    sim_stop();
    if (files_start(folder, error, error_size) < 0 ||
        network_start(settings[setting_ports], settings[setting_hosts],
                      number(setting_real_network) != 0, error, error_size) < 0 ||
        faults_start(settings[setting_faults], error, error_size) < 0)
        return -1;
    folder_fd = open_folder(folder);
    if (folder_fd < 0) {
        snprintf(error, error_size, "no such device folder: \"%s\"", folder);
        return -1;
    }
    script_start(static_cast<int64_t>(number(setting_script_us)));
    descriptors_start();
    partitions_start(number(setting_seed));
    receivers_start(folder_fd, settings[setting_receivers]);
    peer_start(static_cast<int64_t>(number(setting_grace_ms)) * 1000);
    log_start(sink, argument);
    watchdog_start();
    clock_start(number(setting_fast) != 0);
    return 0;
}

void sim_start_from_environment()
{
    constexpr int exit_unusable = 125;
    static int log_fd = -1;
    if (getenv(setting_names[setting_folder]) == nullptr)
        return;
    sim_settings settings;
    for (size_t index = 0; index < settings.size(); index++) {
        const char *value = getenv(setting_names[index]);
        settings[index] = value == nullptr ? "" : value;
    }
    log_fd = atoi(settings[setting_log_fd]);
    fcntl(log_fd, F_SETFD, FD_CLOEXEC); // not for the script
    char error[512];
    if (sim_start(settings, write_record, &log_fd, error, sizeof error) == 0) {
        sim_operation operation = make_operation(op_start, nullptr);
        log_operation(&operation);
        if (atoi(settings[setting_quiet]) != 0)
            log_start(nullptr, nullptr);
        return;
    }
    (void)!real.write(STDERR_FILENO, error, strlen(error));
    (void)!real.write(STDERR_FILENO, "\n", 1);
    syscall(SYS_exit_group, exit_unusable);
}

void sim_stop()
{
    if (folder_fd >= 0)
        real.close(folder_fd);
    folder_fd = -1;
    descriptors_start();
    clock_stop();
}
