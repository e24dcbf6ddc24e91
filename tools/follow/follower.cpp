// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/follower.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/follow/report.h"

namespace follow {

namespace {

constexpr int64_t state_interval_ms = 500;
constexpr int64_t idle_interval_ms =
    5000; // of the state file, so that a page sees somebody follows
constexpr int64_t frame_interval_ms = 250;
constexpr int exit_not_started = 127;
constexpr int64_t last_words_ms = 2000; // for an output that is not read, at the end

// One line on standard error; the terminal's frame begins anew below it.
void complain(follower *self, const char *what, const char *why)
{
    self->screen.drawn_lines = 0;
    fprintf(stderr, "upgrade-follow: %s: %s\n", what, why);
}

bool draws(const follower *self)
{
    return !self->options->json && !self->options->quiet;
}

// File and page: at each change of the phase, else at most twice a second.
void renew_state(follower *self, bool at_once, moment now)
{
    const int64_t age = now.ms - self->state_ms;
    const bool due = self->state_behind ? age >= state_interval_ms
                                        : tracker_active(&self->state) && age >= idle_interval_ms;
    const bool for_page = self->web != nullptr && age >= state_interval_ms;
    if (!at_once && !due && !for_page)
        return;
    text_buffer report;
    append_report(&report, &self->state, now);
    web_publish(self->web, report.view());
    const char *path = self->options->state_file;
    if (path != nullptr && (at_once || due)) {
        const bool lasting = tracker_outcome(&self->state) != outcome_none;
        append(&report, "\n");
        if (replace_file(path, report.view(), lasting)) {
            self->state_complained = false;
        } else if (!self->state_complained) {
            complain(self, path, strerror(errno));
            self->state_complained = true; // once, until it works again
        }
    }
    self->state_behind = false;
    self->state_ms = now.ms;
}

void print_json(follower *self, moment now)
{
    text_buffer line;
    append_report(&line, &self->state, now);
    append(&line, "\n");
    // Without room the present state follows when somebody has read.
    self->json_behind = !output_add(&self->out, line.view());
}

void draw(follower *self, bool at_once, int64_t now_ms)
{
    if (output_pending(&self->out) || self->out.error != 0)
        return;
    const bool due = now_ms - self->frame_ms >= frame_interval_ms;
    if (self->screen.redraws && !at_once && !due)
        return;
    terminal_measure(&self->screen, self->out.fd);
    text_buffer frame;
    append_frame(&frame, &self->screen, &self->state, now_ms);
    output_add(&self->out, frame.view());
    self->frame_ms = now_ms;
}

void keep_record(follower *self, bool good)
{
    if (!good)
        complain(self, self->options->record_file, strerror(errno));
}

void set_number(const char *name, int value)
{
    char text[16];
    snprintf(text, sizeof text, "%d", value);
    setenv(name, text, 1);
}

// Starts the command with the outcome in its environment. Its process, or -1 with errno.
pid_t start_command(const char *command, const tracker *state)
{
    setenv("UPGRADE_OUTCOME", outcome_names[tracker_outcome(state)], 1);
    setenv("UPGRADE_ERROR", state->error.data(), 1);
    set_number("UPGRADE_STATUS", tracker_exit_status(state));
    set_number("UPGRADE_ATTEMPT", state->attempt);
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
    _exit(exit_not_started);
}

void begin_outcome(follower *self)
{
    self->outcome_run = self->state.run;
    if (self->first_status < 0)
        self->first_status = tracker_exit_status(&self->state);
    if (self->options->command == nullptr || self->command > 0)
        return;
    self->command = start_command(self->options->command, &self->state);
    if (self->command < 0)
        complain(self, "--run", strerror(errno));
}

} // namespace

bool follower_start(follower *self, const follow_options *options, moment now)
{
    self->options = options;
    tracker_start(&self->state);
    terminal_start(&self->screen, STDOUT_FILENO);
    output_start(&self->out, STDOUT_FILENO);
    self->shown = phase_count;
    self->first_status = -1;
    if (options->record_file != nullptr && !recording_create(&self->kept, options->record_file)) {
        complain(self, options->record_file, strerror(errno));
        return false;
    }
    if (options->web_port >= 0) {
        text_buffer report;
        append_report(&report, &self->state, now);
        self->web = web_start(options->web_address.data(), options->web_port, report.view());
    }
    follower_update(self, now, false);
    return true;
}

void follower_take(follower *self, const char *data, size_t size, moment now)
{
    keep_record(self, recording_add(&self->kept, data, size, now));
    if (size > datagram_room || !tracker_take(&self->state, {data, size}, now.ms))
        return;
    self->state_behind = true;
    if (self->options->json)
        print_json(self, now);
}

void follower_update(follower *self, moment now, bool wait)
{
    const bool ticked = tracker_tick(&self->state, now.ms);
    const bool moved =
        ticked || self->state.now != self->shown || self->state.run != self->shown_run;
    self->shown = self->state.now;
    self->shown_run = self->state.run;
    output_flush(&self->out, wait ? -1 : 0);
    if (self->options->json && (ticked || self->json_behind))
        print_json(self, now);
    renew_state(self, moved, now);
    if (draws(self))
        draw(self, moved, now.ms);
    output_flush(&self->out, wait ? -1 : 0);
    if (follower_has_outcome(self))
        begin_outcome(self);
    else if (tracker_outcome(&self->state) == outcome_none)
        self->outcome_run = 0;
    if (moved || !tracker_active(&self->state))
        keep_record(self, recording_flush(&self->kept));
}

bool follower_has_outcome(const follower *self)
{
    return tracker_outcome(&self->state) != outcome_none && self->state.run != self->outcome_run;
}

int64_t follower_next_ms(const follower *self)
{
    int64_t next = tracker_next_ms(&self->state);
    if (self->state_behind || self->web != nullptr)
        next = std::min(next, self->state_ms + state_interval_ms);
    if (tracker_active(&self->state)) {
        next = std::min(next, self->state_ms + idle_interval_ms);
        if (draws(self) && self->screen.redraws && !output_pending(&self->out))
            next = std::min(next, self->frame_ms + frame_interval_ms);
    }
    return next;
}

void follower_reap(follower *self)
{
    int status = 0;
    if (self->command <= 0 || waitpid(self->command, &status, WNOHANG) != self->command)
        return;
    self->command = 0;
    char why[64];
    if (WIFSIGNALED(status))
        snprintf(why, sizeof why, "the command was ended by signal %d", WTERMSIG(status));
    else
        snprintf(why, sizeof why, "the command ended with status %d", WEXITSTATUS(status));
    if (status != 0)
        complain(self, "--run", why);
}

void follower_stop(follower *self, bool stopped, moment now)
{
    renew_state(self, self->state_behind, now);
    const int wait_ms = stopped ? 0 : static_cast<int>(last_words_ms);
    output_flush(&self->out, wait_ms);
    if (self->options->json && self->json_behind) { // somebody has begun to read only now
        print_json(self, now);
        output_flush(&self->out, wait_ms);
    }
    if (self->out.error != 0 && self->out.error != EPIPE)
        complain(self, "standard output", strerror(self->out.error));
    const outcome ending = tracker_outcome(&self->state);
    const char *const end = ending == outcome_none ? "stopped" : outcome_names[ending];
    keep_record(self, recording_close(&self->kept, end, now));
    web_stop(self->web);
}

} // namespace follow
