// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/work.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <thread>
#include <vector>

namespace simdev {

namespace {

volatile sig_atomic_t interrupted = 0;

} // namespace

void catch_interrupts()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { interrupted = 1; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool is_interrupted()
{
    return interrupted != 0;
}

void share_work(size_t threads, size_t count, const std::function<void(size_t, size_t)> &work)
{
    std::atomic<size_t> next = 0;
    std::atomic<bool> failed = false;
    std::exception_ptr error;
    const auto take = [&](size_t thread) {
        try {
            for (size_t index = next++; index < count && !failed && !is_interrupted();
                 index = next++)
                work(thread, index);
        } catch (...) {
            if (!failed.exchange(true))
                error = std::current_exception();
        }
    };
    {
        std::vector<std::jthread> started; // joined, also where one of them cannot be started
        for (size_t thread = 0; thread < threads; thread++)
            started.emplace_back(take, thread);
    }
    if (error && !is_interrupted())
        std::rethrow_exception(error);
}

int64_t steady_us()
{
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace simdev
