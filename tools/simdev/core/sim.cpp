// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/sim.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/device.h"
#include "tools/simdev/core/model.h"

sim_model model;

namespace {

constexpr int high_descriptor = 900; // out of the way of what the program numbers
constexpr int64_t day_us = INT64_C(86'400'000'000);

bool fail(char *error, size_t size, const char *what, const char *which)
{
    snprintf(error, size, "%s \"%s\"", what, which);
    return false;
}

// Calls `take` for each piece of `list` between separators (a text of one character); false as soon
// as it gives false.
template<typename Take> bool each_piece(const char *list, const char *separators, Take take)
{
    while (*list != '\0') {
        char piece[256];
        const size_t length = strcspn(list, separators);
        if (length >= sizeof piece)
            return false;
        memcpy(piece, list, length);
        piece[length] = '\0';
        if (length > 0 && !take(piece))
            return false;
        list += length;
        list += *list == separators[0] ? 1 : 0;
    }
    return true;
}

bool take_port(const char *text)
{
    const bool udp = strncmp(text, "udp:", 4) == 0;
    if ((!udp && strncmp(text, "tcp:", 4) != 0) || model.port_count == model.ports.size())
        return false;
    char *end = nullptr;
    const unsigned long device = strtoul(text + 4, &end, 10);
    if (*end != '=')
        return false;
    const unsigned long actual = strtoul(end + 1, &end, 10);
    if (*end != '\0' || device == 0 || device > 65535 || actual == 0 || actual > 65535)
        return false;
    model.ports[model.port_count++] = {udp, static_cast<uint16_t>(device),
                                       static_cast<uint16_t>(actual)};
    return true;
}

bool take_fault(const char *text, char *error, size_t error_size)
{
    if (model.fault_count == model.faults.size())
        return fail(error, error_size, "too many faults before", text);
    sim_fault *fault = &model.faults[model.fault_count];
    if (fault_parse(text, fault, error, error_size) < 0)
        return false;
    model.fault_count++;
    if (fault->kind == fault_watchdog)
        model.watchdog_us = fault->seconds * 1'000'000;
    if (fault->kind == fault_server_stall || fault->kind == fault_server_drip ||
        fault->kind == fault_server_cut)
        model.has_server_fault = true;
    return true;
}

bool open_folder(const char *folder, char *error, size_t error_size)
{
    if (strlen(folder) >= sizeof model.folder)
        return fail(error, error_size, "too long a path:", folder);
    strcpy(model.folder, folder);
    const int fd = real.open64(folder, O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return fail(error, error_size, "no such device folder:", folder);
    model.folder_fd = fcntl(fd, F_DUPFD_CLOEXEC, high_descriptor);
    if (model.folder_fd >= 0)
        real.close(fd);
    else
        model.folder_fd = fd;
    snprintf(model.script, sizeof model.script, "%s%s", folder, network_stop_script);
    return true;
}

// What a started program gets: the environment of now, without what makes it simulated. Only the
// table is new, and it is made here: the child after vfork may not write to memory.
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

} // namespace

int sim_start(const sim_config *config, char *error, size_t error_size)
{
    sim_stop();
    if (!open_folder(config->folder, error, error_size))
        return -1;
    if (!each_piece(config->ports, ",", take_port)) {
        fail(error, error_size, "not a list of ports:", config->ports);
        return -1;
    }
    snprintf(error, error_size, "too long a fault");
    if (!each_piece(config->faults, ";", [error, error_size](const char *text) {
            return take_fault(text, error, error_size);
        }))
        return -1;
    model.fast = config->fast;
    model.grace_us = config->grace_ms * INT64_C(1000);
    model.script_us = config->script_us;
    model.seed = config->seed;
    model.foreign_receivers = {strchr(config->receivers, '1') != nullptr,
                               strchr(config->receivers, '2') != nullptr};
    model.sink = config->sink;
    model.sink_argument = config->sink_argument;
    model.environment = clean_environment();
    model.started_us = real_now_us();
    model.active = true;
    return 0;
}

void sim_stop()
{
    if (model.active)
        real.close(model.folder_fd);
    model = sim_model{};
    model.busy_fd = -1;
}

int64_t sim_virtual_us()
{
    return model.virtual_us;
}

sim_operation make_operation(const char *name)
{
    sim_operation operation = {};
    operation.name = name;
    operation.offset = operation.length = operation.result = operation.number = -1;
    operation.duration_us = operation.received = operation.sent = operation.calls = -1;
    operation.line = operation.level = -1;
    return operation;
}

namespace {

void hand_out(sim_operation *operation)
{
    operation->n = ++model.operations;
    operation->virtual_us = model.virtual_us;
    operation->real_us = real_now_us() - model.started_us;
    if (model.sink != nullptr)
        model.sink(model.sink_argument, operation);
}

} // namespace

void log_pending()
{
    if (model.busy_fd < 0)
        return;
    slot *busy = &model.slots[static_cast<size_t>(model.busy_fd)];
    model.busy_fd = -1;
    sim_operation operation = make_operation("network");
    operation.target = busy->target[0] == '\0' ? nullptr : busy->target;
    operation.received = busy->pending_received;
    operation.sent = busy->pending_sent;
    operation.calls = busy->pending_calls;
    operation.fault = busy->pending_fault;
    busy->pending_fault = nullptr;
    busy->pending_received = busy->pending_sent = busy->pending_calls = 0;
    const int saved = errno;
    hand_out(&operation);
    errno = saved;
}

void log_operation(sim_operation *operation)
{
    const int saved = errno;
    log_pending();
    operation->error = operation->result < 0 ? operation->error : 0;
    hand_out(operation);
    errno = saved;
}

void end_program(sim_end status, const char *name, const char *fault)
{
    sim_operation operation = make_operation(name);
    operation.fault = fault;
    operation.result = status;
    log_operation(&operation);
    syscall(SYS_exit_group, status); // nothing is flushed and no handler runs: the power is gone
    abort();
}

void advance(int64_t microseconds)
{
    log_pending(); // it happened before
    model.virtual_us += microseconds;
    if (model.watchdog_us > 0 && model.virtual_us - model.last_kick_us > model.watchdog_us) {
        model.virtual_us = model.last_kick_us + model.watchdog_us;
        end_program(sim_end_reset, "reset", fault_descriptions[fault_watchdog].name);
    }
    if (model.virtual_us > day_us)
        end_program(sim_end_hang, "hang", nullptr);
}

void hang(const char *fault)
{
    if (model.watchdog_us > 0)
        advance(model.watchdog_us + 1);
    end_program(sim_end_hang, "hang", fault);
}

const sim_fault *find_fault(fault_kind kind, int64_t number)
{
    for (size_t index = 0; index < model.fault_count; index++) {
        const sim_fault *fault = &model.faults[index];
        if (fault->kind == kind && fault_hits(fault, number))
            return fault;
    }
    return nullptr;
}

slot *followed(int fd)
{
    if (fd < 0 || fd >= slot_count)
        return nullptr;
    slot *found = &model.slots[static_cast<size_t>(fd)];
    return found->kind == slot_none ? nullptr : found;
}

int64_t real_now_us()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return to_us(&now);
}

int64_t to_us(const timeval *time)
{
    return time->tv_sec * INT64_C(1'000'000) + time->tv_usec;
}

int64_t to_us(const timespec *time)
{
    return time->tv_sec * INT64_C(1'000'000) + (time->tv_nsec + 999) / 1000;
}
