// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/operation.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>

sim_operation make_operation(sim_op op, const char *target)
{
    sim_operation operation = {};
    operation.op = op;
    operation.offset = operation.length = operation.result = operation.number = sim_absent;
    operation.duration_us = operation.received = operation.sent = operation.calls = sim_absent;
    operation.fault = -1;
    if (target != nullptr)
        snprintf(operation.target, sizeof operation.target, "%s", target);
    return operation;
}

sim_operation make_open(const char *path, int flags)
{
    sim_operation operation = make_operation(op_open, path);
    const int mode = flags & O_ACCMODE;
    const char *access = mode == O_RDONLY ? "read" : mode == O_WRONLY ? "write" : "read-write";
    operation.text_size = static_cast<uint8_t>(strlen(access));
    memcpy(operation.text, access, operation.text_size);
    return operation;
}

const char *const sim_op_names[op_count] = {
    "start", "open",   "seek",      "write",   "read",   "close",   "sync",
    "sleep", "kick",   "datagram",  "resolve", "socket", "connect", "network",
    "wait",  "script", "power-cut", "reset",   "hang",
};
