// SPDX-License-Identifier: GPL-2.0-or-later
//
// The log: every operation in order, numbered and stamped with both clocks. The traffic of one
// connection in a row is summed up to one operation.
#pragma once

#include "tools/simdev/core/faults.h"
#include "tools/simdev/core/operation.h"

/// Told every operation; null: nobody is, and they are numbered all the same. What it is handed
/// lives during the call only.
using sim_sink = void (*)(void *argument, const sim_operation *operation);

/// Starts with operation 1; `argument` is handed to `sink`. All counts are at 0.
void log_start(sim_sink sink, void *argument);

/// make_operation with the number that it has among the operations of its kind, from 1.
sim_operation count_operation(sim_op op, const char *target);

/// Completes `operation` (number, times; no errno without a negative result) and hands it on, after
/// the traffic that is pending. Leaves errno alone.
void log_operation(sim_operation *operation);

/// The same with the call's result, its errno, and the fault that played a part in it, or null.
/// Returns the result.
int64_t log_result(sim_operation *operation, int64_t result, const sim_fault *fault = nullptr);

/// Adds one network call on descriptor `fd` to the pending traffic; `fault` as in the operation.
void log_traffic(int fd, const char *target, int64_t received, int64_t sent, int fault);

/// Hands the pending traffic on: what comes now happens later. Leaves errno alone.
void log_pending();
