// SPDX-License-Identifier: GPL-2.0-or-later
//
// Partitions, the GPIO device, mapped files.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "platform/device.h"
#include "tools/simdev/core/model.h"

#ifndef SYSCFG_FILE
#define SYSCFG_FILE "/etc/syscfg.conf"
#endif

namespace {

constexpr size_t flash_prefix_length = sizeof partition_prefix - 1;

struct path_row {
    const char *device;
    const char *file; // below the folder
    slot_kind kind;
};

constexpr path_row paths[] = {
    {gpio_device, gpio_device, slot_gpio},
    {SYSCFG_FILE, "/etc/syscfg.conf", slot_file},
    {ca_file, ca_file, slot_file},
};

// The real path of a device path into `mapped`; slot_none for one that is not the device's.
slot_kind map_path(const char *path, char *mapped, int *partition)
{
    *partition = -1;
    const char *file = nullptr;
    slot_kind kind = slot_none;
    if (strncmp(path, partition_prefix, flash_prefix_length) == 0 &&
        path[flash_prefix_length] != 0 && path[flash_prefix_length + 1] == '\0') {
        // Whatever the last character is: the program builds it from any byte, and no real device
        // may be meant by it.
        const int number = path[flash_prefix_length] - '0';
        *partition = number >= 0 && number <= 9 ? number : -1;
        file = path[flash_prefix_length] == '/' ? "/dev/none" : path;
        kind = slot_partition;
    }
    for (const path_row &row : paths) {
        if (strcmp(path, row.device) == 0) {
            file = row.file;
            kind = row.kind;
        }
    }
    if (kind != slot_none)
        snprintf(mapped, path_capacity, "%s%s", model.folder, file);
    return kind;
}

// Follows `fd`, just opened for `path`; its number of descriptor may have been another's before.
void follow(int fd, slot_kind kind, const char *path, int partition)
{
    if (fd < 0 || fd >= slot_count)
        return;
    slot *opened = &model.slots[static_cast<size_t>(fd)];
    *opened = {};
    opened->kind = kind;
    opened->partition = static_cast<int8_t>(partition);
    snprintf(opened->target, sizeof opened->target, "%s", path);
    if (kind == slot_partition)
        opened->size = real.lseek64(fd, 0, SEEK_END);
    if (kind == slot_partition)
        real.lseek64(fd, 0, SEEK_SET);
}

void log_open(const char *path, int result, int error, int64_t number, const char *fault)
{
    sim_operation operation = make_operation("open");
    operation.target = path;
    operation.result = result < 0 ? -1 : 0;
    operation.error = error;
    operation.number = number;
    operation.fault = fault;
    log_operation(&operation);
}

// The fault that an open of `partition` runs into, or null; counts the open.
const sim_fault *open_fault(int partition)
{
    if (partition < 0)
        return nullptr;
    const int64_t number = ++model.opens[static_cast<size_t>(partition)];
    for (size_t index = 0; index < model.fault_count; index++) {
        const sim_fault *fault = &model.faults[index];
        if (fault->kind == fault_open_error && fault_hits(fault, number) &&
            (fault->partition < 0 || fault->partition == partition))
            return fault;
    }
    return nullptr;
}

struct flash_call {
    slot *device;
    int64_t offset;
    int64_t number;
    const char *fault;
};

ssize_t finish(const char *name, const flash_call *call, const void *data, size_t asked,
               ssize_t result)
{
    sim_operation operation = make_operation(name);
    operation.error = errno;
    operation.target = call->device->target;
    operation.offset = call->offset;
    operation.length = static_cast<int64_t>(asked);
    operation.result = result;
    operation.number = call->number;
    operation.fault = call->fault;
    operation.data = data;
    operation.data_size = data == nullptr ? 0 : asked;
    log_operation(&operation);
    return result;
}

// Writes all of it or fails, as far as the partition goes.
ssize_t store(int fd, const flash_call *call, const void *data, size_t size)
{
    if (call->offset >= call->device->size && size > 0) {
        errno = ENOSPC;
        return -1;
    }
    const auto room = static_cast<size_t>(call->device->size - call->offset);
    return real.write(fd, data, std::min(size, room));
}

uint64_t mix(uint64_t value)
{
    value += 0x9E3779B97F4A7C15; // splitmix64: any generator would do, this one is a line a step
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    return value ^ (value >> 31);
}

// Stores the data and then turns one bit of what is stored.
ssize_t store_flipped(int fd, const flash_call *call, const sim_fault *fault, const void *data,
                      size_t size)
{
    const ssize_t result = store(fd, call, data, size);
    if (result <= 0)
        return result;
    const auto bits = static_cast<uint64_t>(result) * 8;
    const uint64_t bit =
        (fault->bytes >= 0 ? static_cast<uint64_t>(fault->bytes)
                           : mix(model.seed + static_cast<uint64_t>(call->number))) %
        bits;
    const auto flipped =
        static_cast<uint8_t>(static_cast<const uint8_t *>(data)[bit / 8] ^ (1U << (bit % 8)));
    real.lseek64(fd, call->offset + static_cast<int64_t>(bit / 8), SEEK_SET);
    real.write(fd, &flipped, 1);
    real.lseek64(fd, call->offset + result, SEEK_SET);
    return result;
}

ssize_t write_partition(int fd, slot *device, const void *data, size_t size)
{
    flash_call call = {device, real.lseek64(fd, 0, SEEK_CUR), ++model.flash_writes, nullptr};
    const sim_fault *fault = nullptr;
    const auto hit = [&call, &fault](fault_kind kind) {
        fault = find_fault(kind, call.number);
        if (fault != nullptr)
            call.fault = fault_descriptions[kind].name;
        return fault != nullptr;
    };
    if (hit(fault_cut)) {
        const auto torn = static_cast<size_t>(fault->bytes);
        finish("write", &call, data, size,
               store(fd, &call, data, fault->bytes < 0 ? size : std::min(size, torn)));
        end_program(sim_end_power_cut, "power-cut", call.fault);
    }
    if (hit(fault_write_error)) {
        errno = EIO;
        return finish("write", &call, data, size, -1);
    }
    if (hit(fault_short_write)) {
        const size_t part = fault->bytes < 0 ? size / 2 : static_cast<size_t>(fault->bytes);
        return finish("write", &call, data, size, store(fd, &call, data, std::min(size, part)));
    }
    if (hit(fault_bit_flip))
        return finish("write", &call, data, size, store_flipped(fd, &call, fault, data, size));
    return finish("write", &call, data, size, store(fd, &call, data, size));
}

ssize_t read_partition(int fd, slot *device, void *buffer, size_t size)
{
    flash_call call = {device, real.lseek64(fd, 0, SEEK_CUR), ++model.flash_reads, nullptr};
    if (find_fault(fault_read_error, call.number) != nullptr) {
        call.fault = fault_descriptions[fault_read_error].name;
        errno = EIO;
        return finish("read", &call, nullptr, size, -1);
    }
    return finish("read", &call, nullptr, size, real.read(fd, buffer, size));
}

} // namespace

int sim_open(const char *path, int flags, mode_t mode)
{
    char mapped[path_capacity];
    int partition = -1;
    const slot_kind kind = model.active ? map_path(path, mapped, &partition) : slot_none;
    if (kind == slot_none) {
        const int fd = real.open64(path, flags, mode);
        if (slot *stale = followed(fd))
            *stale = {};
        return fd;
    }
    const sim_fault *fault = open_fault(partition);
    int fd = -1;
    errno = EIO;
    if (fault == nullptr) // a device node is neither made nor emptied by being opened
        fd = real.open64(mapped, flags & ~(O_CREAT | O_TRUNC | O_EXCL), 0);
    const int error = errno;
    follow(fd, kind, path, partition);
    log_open(path, fd, error, partition < 0 ? -1 : model.opens[static_cast<size_t>(partition)],
             fault == nullptr ? nullptr : fault_descriptions[fault_open_error].name);
    errno = error;
    return fd;
}

FILE *sim_fopen(const char *path, const char *mode)
{
    char mapped[path_capacity];
    int partition = -1;
    if (!model.active || map_path(path, mapped, &partition) != slot_file)
        return real.fopen64(path, mode);
    FILE *file = real.fopen64(mapped, mode);
    log_open(path, file == nullptr ? -1 : 0, errno, -1, nullptr);
    return file;
}

ssize_t sim_write(int fd, const void *buffer, size_t size)
{
    slot *device = followed(fd);
    if (device == nullptr)
        return real.write(fd, buffer, size);
    if (device->kind == slot_partition)
        return write_partition(fd, device, buffer, size);
    if (device->kind == slot_tcp)
        return write_connection(fd, device, buffer, size);
    return real.write(fd, buffer, size);
}

ssize_t sim_read(int fd, void *buffer, size_t size)
{
    slot *device = followed(fd);
    if (device == nullptr)
        return real.read(fd, buffer, size);
    if (device->kind == slot_partition)
        return read_partition(fd, device, buffer, size);
    if (device->kind == slot_tcp)
        return read_connection(fd, device, buffer, size);
    return real.read(fd, buffer, size);
}

off64_t sim_lseek(int fd, off64_t offset, int whence)
{
    const off64_t position = real.lseek64(fd, offset, whence);
    slot *device = followed(fd);
    if (device == nullptr || device->kind != slot_partition)
        return position;
    sim_operation operation = make_operation("seek");
    operation.error = errno;
    operation.target = device->target;
    operation.offset = offset;
    operation.result = position;
    log_operation(&operation);
    return position;
}

int sim_close(int fd)
{
    slot *device = followed(fd);
    if (device == nullptr)
        return real.close(fd);
    if (device->kind != slot_unix) { // made for one datagram each; its own operation says enough
        sim_operation operation = make_operation("close");
        operation.target = device->target[0] == '\0' ? nullptr : device->target;
        log_operation(&operation);
    }
    *device = {};
    return real.close(fd);
}

int sim_ioctl(int fd, unsigned long request, void *argument)
{
    slot *device = followed(fd);
    if (device == nullptr || device->kind != slot_gpio || request != gpio_request_watchdog)
        return real.ioctl(fd, static_cast<ioctl_request>(request), argument);
    struct {
        int32_t line;
        uint8_t level;
        uint8_t reserved[3];
    } record;
    static_assert(sizeof record == 8);
    memcpy(&record, argument, sizeof record);
    sim_operation operation = make_operation("kick");
    operation.target = device->target;
    operation.number = ++model.kicks;
    operation.line = record.line;
    operation.level = record.level;
    operation.result = 0;
    if (find_fault(fault_gpio_refuse, model.kicks) != nullptr) {
        operation.fault = fault_descriptions[fault_gpio_refuse].name;
        operation.result = -1;
        operation.error = EIO;
    } else {
        model.last_kick_us = model.virtual_us;
    }
    log_operation(&operation);
    errno = operation.error;
    return static_cast<int>(operation.result);
}
