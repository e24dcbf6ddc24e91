// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/partitions.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "tools/simdev/core/faults.h"
#include "tools/simdev/core/log.h"
#include "tools/simdev/core/real.h"
#include "tools/simdev/core/watchdog.h"

namespace {

struct {
    uint64_t seed;
    std::array<int64_t, 10> opens;
} store_state;

struct flash_call {
    int fd;
    const slot *device;
    sim_operation operation;
    const sim_fault *fault = nullptr;
};

flash_call begin(sim_op op, int fd, const slot *device, size_t size)
{
    flash_call call = {fd, device, count_operation(op, device->target)};
    call.operation.offset = real.lseek64(fd, 0, SEEK_CUR);
    call.operation.length = static_cast<int64_t>(size);
    return call;
}

ssize_t finish(flash_call *call, ssize_t result)
{
    return static_cast<ssize_t>(log_result(&call->operation, result, call->fault));
}

// Writes all of it or fails, as far as the partition goes.
ssize_t store(flash_call *call, const void *data, size_t size)
{
    const int64_t offset = call->operation.offset;
    if (offset >= call->device->size && size > 0) {
        errno = ENOSPC;
        return -1;
    }
    const auto room = static_cast<size_t>(call->device->size - offset);
    return real.write(call->fd, data, std::min(size, room));
}

uint64_t mix(uint64_t value)
{
    value += 0x9E3779B97F4A7C15; // splitmix64: any generator would do, this one is a line a step
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    return value ^ (value >> 31);
}

ssize_t store_torn(flash_call *call, const void *data, size_t size)
{
    const auto torn = static_cast<size_t>(call->fault->bytes);
    const size_t kept = call->fault->bytes < 0 ? size : std::min(size, torn);
    finish(call, kept == 0 ? 0 : store(call, data, kept));
    cut_power(fault_index(call->fault));
}

ssize_t store_nothing(flash_call * /*call*/, const void * /*data*/, size_t /*size*/)
{
    errno = EIO;
    return -1;
}

ssize_t store_part(flash_call *call, const void *data, size_t size)
{
    const int64_t bytes = call->fault->bytes;
    const size_t part = bytes < 0 ? size / 2 : std::min(size, static_cast<size_t>(bytes));
    return part == 0 ? 0 : store(call, data, part);
}

// Stores the data and then turns one bit of what is stored.
ssize_t store_flipped(flash_call *call, const void *data, size_t size)
{
    const ssize_t result = store(call, data, size);
    if (result <= 0)
        return result;
    const auto bits = static_cast<uint64_t>(result) * 8;
    const uint64_t chosen =
        call->fault->bytes >= 0
            ? static_cast<uint64_t>(call->fault->bytes)
            : mix(store_state.seed + static_cast<uint64_t>(call->operation.number));
    const uint64_t bit = chosen % bits;
    const auto flipped =
        static_cast<uint8_t>(static_cast<const uint8_t *>(data)[bit / 8] ^ (1U << (bit % 8)));
    const int64_t offset = call->operation.offset;
    real.lseek64(call->fd, offset + static_cast<int64_t>(bit / 8), SEEK_SET);
    real.write(call->fd, &flipped, 1);
    real.lseek64(call->fd, offset + result, SEEK_SET);
    return result;
}

// What a write comes to instead; the first that applies does.
constexpr struct {
    fault_kind kind;
    ssize_t (*store)(flash_call *call, const void *data, size_t size);
} write_faults[] = {
    {fault_cut, store_torn},
    {fault_write_error, store_nothing},
    {fault_short_write, store_part},
    {fault_bit_flip, store_flipped},
};

} // namespace

void partitions_start(uint64_t seed)
{
    store_state = {};
    store_state.seed = seed;
}

int open_partition(const char *path, const char *mapped, int partition, int flags)
{
    sim_operation operation = make_open(path, flags);
    const sim_fault *fault = nullptr;
    if (partition >= 0) {
        operation.number = ++store_state.opens[static_cast<size_t>(partition)];
        fault = find_fault(fault_open_error, operation.number, partition);
    }
    errno = EIO;
    // A device node is neither made nor emptied by being opened.
    const int fd =
        fault != nullptr ? -1 : real.open64(mapped, flags & ~(O_CREAT | O_TRUNC | O_EXCL), 0);
    const int error = errno;
    if (slot *device = follow(fd, slot_partition)) {
        device->partition = static_cast<int8_t>(partition);
        snprintf(device->target, sizeof device->target, "%s", path);
        device->size = real.lseek64(fd, 0, SEEK_END);
        real.lseek64(fd, 0, SEEK_SET);
    }
    errno = error;
    log_result(&operation, fd < 0 ? -1 : 0, fault);
    return fd;
}

ssize_t write_partition(int fd, slot *device, const void *data, size_t size)
{
    flash_call call = begin(op_write, fd, device, size);
    for (const auto &[kind, play] : write_faults) {
        call.fault = find_fault(kind, call.operation.number);
        if (call.fault != nullptr)
            return finish(&call, play(&call, data, size));
    }
    return finish(&call, store(&call, data, size));
}

ssize_t read_partition(int fd, slot *device, void *buffer, size_t size)
{
    flash_call call = begin(op_read, fd, device, size);
    call.fault = find_fault(fault_read_error, call.operation.number);
    if (call.fault == nullptr)
        return finish(&call, real.read(fd, buffer, size));
    errno = EIO;
    return finish(&call, -1);
}

off64_t seek_partition(int fd, slot *device, off64_t offset, int whence)
{
    sim_operation operation = count_operation(op_seek, device->target);
    operation.offset = offset;
    const sim_fault *fault = find_fault(fault_seek_error, operation.number);
    errno = EIO;
    return log_result(&operation, fault != nullptr ? -1 : real.lseek64(fd, offset, whence), fault);
}

void sim_sync()
{
    // What the program wrote is in its file already; a real sync would wait for all of this
    // machine's disks.
    sim_operation operation = count_operation(op_sync, nullptr);
    const sim_fault *fault = find_fault(fault_sync_slow, operation.number);
    if (fault != nullptr) {
        operation.fault = fault_index(fault);
        operation.duration_us = fault->seconds * 1'000'000;
        spend(operation.duration_us);
    }
    log_operation(&operation);
}
