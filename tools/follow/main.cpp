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

moment now()
{
    return {milliseconds(CLOCK_MONOTONIC), milliseconds(CLOCK_REALTIME)};
}

int trouble(const text_buffer &why)
{
    fprintf(stderr, "upgrade-follow: %.*s\n", static_cast<int>(why.size), why.data.data());
    return exit_own_trouble;
}

// Blocked but while the program sleeps, and for all threads that it starts.
void catch_signals()
{
    struct sigaction action = {};
    action.sa_handler = [](int number) {
        if (number != SIGCHLD && number != SIGWINCH) // which only wake the program
            stop_signal = number;
    };
    sigset_t caught;
    sigemptyset(&caught);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD, SIGWINCH}) {
        sigaction(number, &action, nullptr);
        sigaddset(&caught, number);
    }
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

// When the program may end: when nothing began in time, or an outcome was seen, its command has
// ended, and the page had time to show it.
int64_t end_ms(int64_t start_ms)
{
    if (self.options->wait_ms >= 0 && self.state.run == 0)
        return start_ms + self.options->wait_ms;
    if (self.options->stay || self.first_status < 0 || self.command > 0)
        return never_ms;
    const bool linger = self.web != nullptr && self.outcome_run != 0;
    return linger ? self.state.end_ms + self.options->linger_ms : 0;
}

// Takes what has come; false when more may be there.
bool take_datagrams(const receiver *socket)
{
    char data[datagram_room];
    for (int count = 0; count < datagrams_a_turn; count++) {
        const ssize_t size = receiver_take(socket, data);
        if (size < 0)
            return true;
        follower_take(&self, data, static_cast<size_t>(size), now());
        if (follower_has_outcome(&self))
            follower_update(&self, now(), false); // what follows may begin a new run
    }
    return false;
}

int follow_socket(const follow_options *options)
{
    receiver socket;
    text_buffer error;
    if (!receiver_open(&socket, options->socket_path, options->mode, &error))
        return trouble(error);
    const int64_t start_ms = now().ms;
    int status = exit_own_trouble;
    if (follower_start(&self, options, now())) {
        do { // ends by a signal or in its time, unless it is to stay
            const int64_t now_ms = now().ms;
            sleep_until(socket.fd, std::min(follower_next_ms(&self), end_ms(start_ms)) - now_ms);
            while (!take_datagrams(&socket))
                if (now().ms - now_ms > 100)
                    break; // a flood: the outputs are due, too
            follower_update(&self, now(), false);
        } while (stop_signal == 0 && now().ms < end_ms(start_ms));
        status = self.first_status < 0 ? exit_none_began : self.first_status;
        follower_stop(&self, stop_signal != 0, now());
    }
    receiver_close(&socket);
    return status;
}

// A recording and its own clock, which begins at 0 and runs `speed` times as fast.
struct replay {
    playback recording;
    double speed;
    int64_t start_ms;
    int64_t now_ms; ///< of the replay
};

moment replayed(const replay *show)
{
    return {show->now_ms, show->recording.clock_ms + show->now_ms};
}

// Sleeps until the replay's time is `when`, with the outputs kept up to date. False when a signal
// came.
bool replay_until(replay *show, int64_t when)
{
    while (stop_signal == 0 && show->now_ms < when) { // ends at `when`
        const int64_t next = std::min(follower_next_ms(&self), when);
        if (show->speed > 0) {
            const double rest_ms = std::ceil(static_cast<double>(next) / show->speed);
            sleep_until(-1, show->start_ms + std::llround(rest_ms) - now().ms);
            const auto played = static_cast<double>(now().ms - show->start_ms) * show->speed;
            show->now_ms = std::clamp<int64_t>(std::llround(played), show->now_ms, when);
        } else {
            show->now_ms = std::max(show->now_ms + 1, next);
        }
        if (show->now_ms < when)
            follower_update(&self, replayed(show), true);
    }
    return stop_signal == 0;
}

// Plays all datagrams, then the silence behind them. False: the recording is at fault.
bool play(replay *show, text_buffer *error)
{
    playback *source = &show->recording;
    playback_result result = playback_datagram;
    while (stop_signal == 0 && (result = playback_next(source, error)) == playback_datagram) {
        if (!replay_until(show, source->at_ms))
            return true;
        follower_take(&self, source->datagram.data(), source->datagram.size(), replayed(show));
        follower_update(&self, replayed(show), true);
    }
    while (result == playback_end && stop_signal == 0 && tracker_active(&self.state)) {
        replay_until(show, tracker_next_ms(&self.state));
        follower_update(&self, replayed(show), true);
    }
    return result != playback_error;
}

int follow_recording(const follow_options *options)
{
    replay show = {.recording = {}, .speed = options->speed, .start_ms = 0, .now_ms = 0};
    text_buffer error;
    if (!playback_open(&show.recording, options->replay_file, &error))
        return trouble(error);
    if (!follower_start(&self, options, replayed(&show)))
        return exit_own_trouble;
    show.start_ms = now().ms;
    const bool good = play(&show, &error);
    const int64_t linger_end_ms = good && self.web != nullptr ? now().ms + options->linger_ms : 0;
    int64_t rest_ms = 0;
    while (stop_signal == 0 && ((rest_ms = linger_end_ms - now().ms) > 0 || self.command > 0))
        sleep_until(-1, rest_ms > 0 ? rest_ms : longest_sleep_ms);
    follower_stop(&self, stop_signal != 0, replayed(&show));
    fclose(show.recording.file);
    return good ? tracker_exit_status(&self.state) : trouble(error);
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
