// SPDX-License-Identifier: GPL-2.0-or-later
//
// upgrade-follow: follows an upgrade by its status datagrams, from the socket or from a recording.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <unistd.h>

#include "platform/descriptors.h"
#include "tools/follow/follower.h"
#include "tools/follow/receiver.h"

namespace {

using namespace follow;

constexpr int exit_own_trouble = 125;
constexpr int exit_none_began = 3;
constexpr int datagrams_a_turn = 256; // then the outputs get their turn
constexpr int64_t longest_sleep_ms = 60'000;

volatile sig_atomic_t stop_signal = 0;
sigset_t usual_signals;

follower self; // with its buffers: one, for the life of the program

int64_t milliseconds(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1'000'000;
}

int64_t now()
{
    return milliseconds(CLOCK_MONOTONIC);
}

int64_t time_of_day()
{
    return milliseconds(CLOCK_REALTIME);
}

// Blocked but while the program sleeps, and for all threads that it starts.
void catch_signals()
{
    struct sigaction action = {};
    action.sa_handler = [](int number) { stop_signal = number; };
    sigset_t caught;
    sigemptyset(&caught);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(number, &action, nullptr);
        sigaddset(&caught, number);
    }
    action.sa_handler = [](int) {}; // wakes the program
    sigaction(SIGCHLD, &action, nullptr);
    sigaction(SIGWINCH, &action, nullptr);
    sigaddset(&caught, SIGCHLD);
    sigaddset(&caught, SIGWINCH);
    signal(SIGPIPE, SIG_IGN);
    sigprocmask(SIG_BLOCK, &caught, &usual_signals);
}

// Sleeps until a datagram comes to `fd` (-1: none), the output can be written, a signal comes or
// the time is over.
void sleep_until(int fd, int64_t sleep_ms)
{
    sleep_ms = std::clamp<int64_t>(sleep_ms, 0, longest_sleep_ms);
    const timespec time = {.tv_sec = static_cast<time_t>(sleep_ms / 1000),
                           .tv_nsec = static_cast<long>(sleep_ms % 1000) * 1'000'000};
    pollfd fds[] = {{fd, POLLIN, 0}, {output_pending(&self.out) ? self.out.fd : -1, POLLOUT, 0}};
    ppoll(fds, 2, &time, &usual_signals);
    follower_reap(&self);
}

// True when the program may end: an outcome was seen, its command has ended, and the page had time
// to show it.
bool is_over(int64_t now_ms)
{
    if (self.options->stay || self.first_status < 0 || self.command > 0)
        return false;
    const bool linger = self.web != nullptr && self.in_outcome;
    return !linger || now_ms - self.state.end_ms >= self.options->linger_ms;
}

int64_t next_ms(int64_t start_ms)
{
    int64_t next = follower_next_ms(&self);
    if (self.options->wait_ms >= 0 && self.state.run == 0)
        next = std::min(next, start_ms + self.options->wait_ms);
    if (self.in_outcome && !self.options->stay && self.command <= 0)
        next = std::min(next, self.state.end_ms + self.options->linger_ms);
    return next;
}

// Takes what has come; false when more may be there.
bool take_datagrams(const receiver *socket)
{
    char data[datagram_room];
    for (int count = 0; count < datagrams_a_turn; count++) {
        const ssize_t size = receiver_take(socket, data);
        if (size < 0)
            return true;
        follower_take(&self, data, static_cast<size_t>(size), now(), time_of_day());
        if (follower_has_outcome(&self))
            follower_update(&self, now(), time_of_day(), false); // what follows may begin a new run
    }
    return false;
}

int follow_socket(const follow_options *options)
{
    receiver socket;
    char error[512];
    if (!receiver_open(&socket, options->socket_path, options->mode, error, sizeof error)) {
        fprintf(stderr, "upgrade-follow: %s\n", error);
        return exit_own_trouble;
    }
    const int64_t start_ms = now();
    int status = exit_own_trouble;
    if (follower_start(&self, options, start_ms, time_of_day())) {
        bool waited_long = false;
        while (stop_signal == 0 && !is_over(now()) && !waited_long) {
            const int64_t now_ms = now();
            sleep_until(socket.fd, next_ms(start_ms) - now_ms);
            while (!take_datagrams(&socket))
                if (now() - now_ms > 100)
                    break; // a flood: the outputs are due, too
            follower_update(&self, now(), time_of_day(), false);
            waited_long = options->wait_ms >= 0 && self.state.run == 0 &&
                          now() - start_ms >= options->wait_ms;
        }
        status = waited_long ? exit_none_began : self.first_status;
        follower_stop(&self, stop_signal != 0, now(), time_of_day());
    }
    receiver_close(&socket);
    return status;
}

// The replay's own clock: begins at 0 and runs `speed` times as fast.
struct replay_clock {
    int64_t start_ms;
    double speed;
    int64_t now_ms; ///< of the replay
};

// Sleeps until the replay's time is `when`, with the outputs kept up to date. False when a signal
// came.
bool replay_until(replay_clock *clock, int64_t when, int64_t recorded_ms)
{
    while (stop_signal == 0 && clock->now_ms < when) { // ends at `when`
        const int64_t next = std::min(follower_next_ms(&self), when);
        if (clock->speed > 0) {
            const int64_t real_ms =
                clock->start_ms + std::llround(std::ceil(static_cast<double>(next) / clock->speed));
            sleep_until(-1, real_ms - now());
            const auto played = static_cast<double>(now() - clock->start_ms) * clock->speed;
            clock->now_ms = std::clamp<int64_t>(std::llround(played), clock->now_ms, when);
        } else {
            clock->now_ms = std::max(clock->now_ms + 1, next);
        }
        if (clock->now_ms < when)
            follower_update(&self, clock->now_ms, recorded_ms + clock->now_ms, true);
    }
    return stop_signal == 0;
}

// Plays all datagrams, then the silence behind them. False: the recording is at fault.
bool play(playback *recording, replay_clock *clock, char *error, size_t error_size)
{
    playback_result result = playback_datagram;
    while (stop_signal == 0 &&
           (result = playback_next(recording, error, error_size)) == playback_datagram) {
        if (!replay_until(clock, recording->at_ms, recording->clock_ms))
            return true;
        follower_take(&self, recording->data.data(), recording->size, clock->now_ms,
                      recording->clock_ms + clock->now_ms);
        follower_update(&self, clock->now_ms, recording->clock_ms + clock->now_ms, true);
    }
    while (result == playback_end && stop_signal == 0 && tracker_active(&self.state)) {
        replay_until(clock, tracker_next_ms(&self.state), recording->clock_ms);
        follower_update(&self, clock->now_ms, recording->clock_ms + clock->now_ms, true);
    }
    return result != playback_error;
}

int follow_recording(const follow_options *options)
{
    playback recording;
    char error[512];
    if (!playback_open(&recording, options->replay_file, error, sizeof error)) {
        fprintf(stderr, "upgrade-follow: %s\n", error);
        return exit_own_trouble;
    }
    if (!follower_start(&self, options, 0, recording.clock_ms))
        return exit_own_trouble;
    replay_clock clock = {now(), options->speed, 0};
    const bool good = play(&recording, &clock, error, sizeof error);
    const int64_t end_ms = now();
    const bool linger = good && self.web != nullptr;
    while (stop_signal == 0) { // ends with the command and the lingering
        const int64_t rest_ms = linger ? end_ms + options->linger_ms - now() : 0;
        if (rest_ms <= 0 && self.command <= 0)
            break;
        sleep_until(-1, rest_ms > 0 ? rest_ms : longest_sleep_ms);
    }
    follower_stop(&self, stop_signal != 0, clock.now_ms, recording.clock_ms + clock.now_ms);
    fclose(recording.file);
    if (!good)
        fprintf(stderr, "upgrade-follow: %s\n", error);
    return !good ? exit_own_trouble : tracker_exit_status(&self.state);
}

} // namespace

int main(int argc, char **argv)
{
    open_standard_descriptors();
    follow_options options;
    switch (read_options(&options, argc, argv)) {
    case options_over:
        return 0;
    case options_wrong:
        return exit_own_trouble;
    case options_follow:
        break;
    }
    catch_signals();
    const int status =
        options.replay_file != nullptr ? follow_recording(&options) : follow_socket(&options);
    if (stop_signal != 0) {
        signal(stop_signal, SIG_DFL);
        sigprocmask(SIG_SETMASK, &usual_signals, nullptr);
        raise(stop_signal);
    }
    return status;
}
