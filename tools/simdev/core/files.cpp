// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "platform/device.h"
#include "tools/simdev/core/clock.h"
#include "tools/simdev/core/log.h"
#include "tools/simdev/core/partitions.h"
#include "tools/simdev/core/real.h"
#include "tools/simdev/core/sockets.h"

#ifndef SYSCFG_FILE
#define SYSCFG_FILE "/etc/syscfg.conf"
#endif

namespace {

constexpr size_t prefix_length = sizeof partition_prefix - 1;

char device_folder[real_path_capacity - 64]; // so that every path below it fits

struct place {
    slot_kind kind; // slot_none: not the device's
    int partition;
    real_path path;
};

constexpr struct {
    const char *device;
    const char *file; // below the folder
    slot_kind kind;
} rows[] = {
    {gpio_device, gpio_device, slot_gpio},
    {SYSCFG_FILE, "/etc/syscfg.conf", slot_file},
    {ca_file, ca_file, slot_file},
};

place find_place(const char *path)
{
    place found = {slot_none, -1, ""};
    const char *file = nullptr;
    if (!clock_runs())
        return found;
    if (strncmp(path, partition_prefix, prefix_length) == 0 && path[prefix_length] != '\0' &&
        path[prefix_length + 1] == '\0') {
        // Whatever the last character is: the program builds it from any byte, and no real device
        // may be meant by it.
        const int number = path[prefix_length] - '0';
        found.partition = number >= 0 && number <= 9 ? number : -1;
        found.kind = slot_partition;
        file = path[prefix_length] == '/' ? "/dev/none" : path;
    }
    for (const auto &row : rows) {
        if (strcmp(path, row.device) == 0) {
            file = row.file;
            found.kind = row.kind;
        }
    }
    if (found.kind != slot_none)
        put_into_folder(file, found.path);
    return found;
}

} // namespace

int files_start(const char *folder, char *error, size_t error_size)
{
    if (strlen(folder) >= sizeof device_folder) {
        snprintf(error, error_size, "too long a path: \"%s\"", folder);
        return -1;
    }
    strcpy(device_folder, folder);
    return 0;
}

void put_into_folder(const char *path, real_path &into)
{
    snprintf(into, sizeof into, "%s%s", device_folder, path);
}

int sim_open(const char *path, int flags, mode_t mode)
{
    const place found = find_place(path);
    if (found.kind == slot_none) {
        const int fd = real.open64(path, flags, mode);
        follow(fd, slot_none);
        return fd;
    }
    if (found.kind == slot_partition)
        return open_partition(path, found.path, found.partition, flags);
    const int fd = real.open64(found.path, flags & ~(O_CREAT | O_TRUNC | O_EXCL), 0);
    sim_operation operation = make_open(path, flags);
    log_result(&operation, fd < 0 ? -1 : 0);
    if (slot *opened = follow(fd, found.kind))
        snprintf(opened->target, sizeof opened->target, "%s", path);
    return fd;
}

FILE *sim_fopen(const char *path, const char *mode)
{
    const place found = find_place(path);
    if (found.kind != slot_file)
        // cppcheck-suppress CastIntegerToAddressAtReturn; it is a pointer
        return real.fopen64(path, mode);
    FILE *file = real.fopen64(found.path, mode);
    sim_operation operation = make_open(path, O_RDONLY);
    log_result(&operation, file == nullptr ? -1 : 0);
    return file;
}

ssize_t sim_write(int fd, const void *buffer, size_t size)
{
    slot *device = followed(fd);
    if (device != nullptr && device->kind == slot_partition)
        return write_partition(fd, device, buffer, size);
    if (device != nullptr && device->kind == slot_tcp)
        return write_connection(fd, device, buffer, size);
    return real.write(fd, buffer, size);
}

ssize_t sim_read(int fd, void *buffer, size_t size)
{
    slot *device = followed(fd);
    if (device != nullptr && device->kind == slot_partition)
        return read_partition(fd, device, buffer, size);
    if (device != nullptr && device->kind == slot_tcp)
        return read_connection(fd, device, buffer, size);
    return real.read(fd, buffer, size);
}

off64_t sim_lseek(int fd, off64_t offset, int whence)
{
    slot *device = followed(fd);
    if (device != nullptr && device->kind == slot_partition)
        return seek_partition(fd, device, offset, whence);
    return real.lseek64(fd, offset, whence);
}

int sim_close(int fd)
{
    const slot *device = followed(fd);
    if (device != nullptr && device->kind != slot_unix) { // made for one datagram each
        sim_operation operation = make_operation(op_close, device->target);
        log_operation(&operation);
    }
    follow(fd, slot_none);
    return real.close(fd);
}
