// SPDX-License-Identifier: GPL-2.0-or-later
//
// Work that lasts: SIGINT and SIGTERM end it with what was done so far, threads share it, and its
// time is measured.
#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace simdev {

constexpr int exit_interrupted = 128 + SIGINT;

/// From now on the first of these signals is only noted; later ones end simdev at once.
void catch_interrupts();
bool is_interrupted();

/// Calls `work` for each index below `count` on `threads` threads, which are numbered from 0, and
/// waits for them. No more is begun once simdev is interrupted or a call has thrown; then throws
/// what that one did, unless simdev is interrupted.
void share_work(size_t threads, size_t count,
                const std::function<void(size_t thread, size_t index)> &work);

/// Microseconds since some moment before the start of simdev.
int64_t steady_us();

} // namespace simdev
