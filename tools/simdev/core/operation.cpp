// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/operation.h"

#include <cstdio>

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

const char *const sim_op_names[op_count] = {
    "start", "open",   "seek",      "write",   "read",   "close",   "sync",
    "sleep", "kick",   "datagram",  "resolve", "socket", "connect", "network",
    "wait",  "script", "power-cut", "reset",   "hang",
};
