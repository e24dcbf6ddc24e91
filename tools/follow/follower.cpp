// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/follower.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/follow/command.h"
#include "tools/follow/page.h"
#include "tools/follow/report.h"
#include "tools/follow/state_file.h"
#include "tools/follow/texts.h"

namespace follow {

namespace {

constexpr int64_t state_interval_ms = 500;
constexpr int64_t idle_interval_ms =
    5000; // of the state file, so that a page sees somebody follows
constexpr int64_t frame_interval_ms = 250;
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

void publish([[maybe_unused]] follower *self, [[maybe_unused]] const text_buffer *report)
{
#ifdef UPGRADE_FOLLOW_WEB
    web_publish(self->web, {report->data, report->size});
#endif
}

// File and page: at each change of the phase, else at most twice a second.
void renew_state(follower *self, bool at_once, int64_t now_ms, int64_t clock_ms)
{
    const int64_t age = now_ms - self->state_ms;
    const bool due = self->state_behind ? age >= state_interval_ms
                                        : tracker_active(&self->state) && age >= idle_interval_ms;
    const bool for_page = self->web != nullptr && age >= state_interval_ms;
    if (!at_once && !due && !for_page)
        return;
    char data[report_limit];
    text_buffer report = {data, sizeof data, 0, false};
    append_report(&report, &self->state, now_ms, clock_ms);
    publish(self, &report);
    const char *path = self->options->state_file;
    if (path != nullptr && (at_once || due)) {
        const bool lasting = tracker_outcome(&self->state) != outcome_none;
        if (replace_file(path, &report, lasting)) {
            self->state_complained = false;
        } else if (!self->state_complained) {
            complain(self, path, strerror(errno));
            self->state_complained = true; // once, until it works again
        }
    }
    self->state_behind = false;
    self->state_ms = now_ms;
}

void start_web([[maybe_unused]] follower *self, [[maybe_unused]] int64_t now_ms,
               [[maybe_unused]] int64_t clock_ms)
{
#ifdef UPGRADE_FOLLOW_WEB
    char error[256];
    int port = self->options->web_port;
    const char *address = self->options->web_address.data();
    self->web = web_start(address, &port, page_text, error, sizeof error);
    if (self->web == nullptr) {
        fprintf(stderr, "upgrade-follow: %s\n", error);
        return;
    }
    renew_state(self, true, now_ms, clock_ms); // before anybody is told where to ask for it
    const bool brackets = strchr(address, ':') != nullptr;
    fprintf(stderr, "The page: http://%s%s%s:%d/\n", brackets ? "[" : "", address,
            brackets ? "]" : "", port);
#endif
}

void print_json(follower *self, int64_t now_ms, int64_t clock_ms)
{
    self->json_behind = true;
    if (!output_has_room(&self->out, report_limit))
        output_flush(&self->out, 0);
    if (!output_has_room(&self->out, report_limit))
        return; // the present state follows when somebody has read
    char data[report_limit];
    text_buffer line = {data, sizeof data, 0, false};
    append_report(&line, &self->state, now_ms, clock_ms);
    append(&line, "\n");
    output_add(&self->out, &line);
    self->json_behind = false;
}

void draw(follower *self, bool at_once, int64_t now_ms)
{
    if (output_pending(&self->out) || self->out.failed)
        return;
    const bool due = now_ms - self->frame_ms >= frame_interval_ms;
    if (self->screen.redraws && !at_once && !due)
        return;
    terminal_measure(&self->screen, self->out.fd);
    char data[frame_limit];
    text_buffer frame = {data, sizeof data, 0, false};
    append_frame(&frame, &self->screen, &self->state, now_ms);
    output_add(&self->out, &frame);
    self->frame_ms = now_ms;
}

void keep_record(follower *self, bool good)
{
    if (!good)
        complain(self, self->options->record_file, strerror(errno));
}

void begin_outcome(follower *self)
{
    self->in_outcome = true;
    self->outcome_run = self->state.run;
    if (self->first_status < 0)
        self->first_status = tracker_exit_status(&self->state);
    if (self->options->command == nullptr || self->command > 0)
        return;
    const pid_t pid = start_command(self->options->command, &self->state);
    if (pid < 0)
        complain(self, "--run", strerror(errno));
    else
        self->command = pid;
}

} // namespace

bool follower_start(follower *self, const follow_options *options, int64_t now_ms, int64_t clock_ms)
{
    self->options = options;
    tracker_start(&self->state);
    terminal_start(&self->screen, STDOUT_FILENO);
    output_start(&self->out, STDOUT_FILENO);
    self->shown = phase_count;
    self->first_status = -1;
    self->frame_ms = now_ms - frame_interval_ms;
    self->record.fd = -1;
    if (options->record_file != nullptr && !recording_create(&self->record, options->record_file)) {
        complain(self, options->record_file, strerror(errno));
        return false;
    }
    if (options->web_port >= 0)
        start_web(self, now_ms, clock_ms);
    follower_update(self, now_ms, clock_ms, false);
    return true;
}

void follower_take(follower *self, const char *data, size_t size, int64_t now_ms, int64_t clock_ms)
{
    keep_record(self, recording_add(&self->record, data, size, now_ms, clock_ms));
    if (size > datagram_room || !tracker_take(&self->state, {data, size}, now_ms))
        return;
    self->state_behind = true;
    if (self->options->json)
        print_json(self, now_ms, clock_ms);
}

void follower_update(follower *self, int64_t now_ms, int64_t clock_ms, bool wait)
{
    const bool ticked = tracker_tick(&self->state, now_ms);
    const bool moved =
        ticked || self->state.now != self->shown || self->state.run != self->shown_run;
    self->shown = self->state.now;
    self->shown_run = self->state.run;
    output_flush(&self->out, wait ? -1 : 0);
    if (self->options->json && (ticked || self->json_behind))
        print_json(self, now_ms, clock_ms);
    renew_state(self, moved, now_ms, clock_ms);
    if (draws(self))
        draw(self, moved, now_ms);
    output_flush(&self->out, wait ? -1 : 0);
    if (follower_has_outcome(self))
        begin_outcome(self);
    else if (tracker_outcome(&self->state) == outcome_none)
        self->in_outcome = false;
    if (moved || !tracker_active(&self->state))
        keep_record(self, recording_flush(&self->record));
}

bool follower_has_outcome(const follower *self)
{
    return tracker_outcome(&self->state) != outcome_none &&
           (!self->in_outcome || self->state.run != self->outcome_run);
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

void follower_stop(follower *self, bool stopped, int64_t now_ms, int64_t clock_ms)
{
    renew_state(self, self->state_behind, now_ms, clock_ms);
    const int wait_ms = stopped ? 0 : static_cast<int>(last_words_ms);
    output_flush(&self->out, wait_ms);
    if (self->options->json && self->json_behind) { // somebody has begun to read only now
        print_json(self, now_ms, clock_ms);
        output_flush(&self->out, wait_ms);
    }
    if (self->out.failed && self->out.error != EPIPE)
        complain(self, "standard output", strerror(self->out.error));
    const outcome end = tracker_outcome(&self->state);
    keep_record(self,
                recording_close(&self->record, end == outcome_none ? "stopped" : outcome_names[end],
                                now_ms, clock_ms));
#ifdef UPGRADE_FOLLOW_WEB
    web_stop(self->web);
#endif
}

} // namespace follow
