// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/sim.h"

#include <cstdio>
#include <fcntl.h>

#include "tools/simdev/core/clock.h"
#include "tools/simdev/core/descriptors.h"
#include "tools/simdev/core/faults.h"
#include "tools/simdev/core/files.h"
#include "tools/simdev/core/gpio.h"
#include "tools/simdev/core/network.h"
#include "tools/simdev/core/partitions.h"
#include "tools/simdev/core/peer.h"
#include "tools/simdev/core/real.h"
#include "tools/simdev/core/receivers.h"
#include "tools/simdev/core/script.h"
#include "tools/simdev/core/sockets.h"
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

} // namespace

int sim_start(const sim_config *config, char *error, size_t error_size)
{
    sim_stop();
    if (files_start(config->folder, error, error_size) < 0 ||
        script_start(config->folder, config->script_us, error, error_size) < 0 ||
        network_start(config->ports, config->hosts, config->real_network, error, error_size) < 0 ||
        faults_start(config->faults, error, error_size) < 0)
        return -1;
    folder_fd = open_folder(config->folder);
    if (folder_fd < 0) {
        snprintf(error, error_size, "no such device folder: \"%s\"", config->folder);
        return -1;
    }
    descriptors_start();
    partitions_start(config->seed);
    gpio_start();
    sockets_start();
    receivers_start(folder_fd, config->receivers);
    peer_start(config->grace_ms * INT64_C(1000));
    log_start(config->sink, config->sink_argument);
    watchdog_start();
    clock_start(config->fast);
    return 0;
}

void sim_stop()
{
    if (folder_fd >= 0)
        real.close(folder_fd);
    folder_fd = -1;
    descriptors_start();
    clock_stop();
}
