// SPDX-License-Identifier: GPL-2.0-or-later
//
// Starting from the environment, and the log as JSON lines.
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "tools/simdev/core/model.h"

namespace {

constexpr int exit_unusable = 125;

// A line under construction; what does not fit is left out, and the longest line fits.
struct line {
    char text[4096];
    size_t length;
};

[[gnu::format(printf, 2, 3)]] void add(line *line, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const size_t room = sizeof line->text - line->length;
    const int count = vsnprintf(line->text + line->length, room, format, arguments);
    va_end(arguments);
    if (count > 0)
        line->length += static_cast<size_t>(count) < room ? static_cast<size_t>(count) : room - 1;
}

void add_number(line *line, const char *name, int64_t value)
{
    if (value >= 0)
        add(line, ",\"%s\":%lld", name, static_cast<long long>(value));
}

void add_text(line *line, const char *name, const char *text, size_t size)
{
    constexpr size_t limit = 256;
    add(line, ",\"%s\":\"", name);
    for (size_t index = 0; index < size && index < limit; index++) {
        const auto byte = static_cast<uint8_t>(text[index]);
        if (byte < 0x20 || byte > 0x7E || byte == '"' || byte == '\\')
            add(line, "\\u%04x", byte);
        else
            add(line, "%c", byte);
    }
    add(line, "\"");
}

void write_line(void * /*argument*/, const sim_operation *operation)
{
    static int fd = -1;
    static line line;
    if (fd < 0)
        fd = atoi(getenv("SIMDEV_LOG_FD"));
    line.length = 0;
    add(&line, "{\"n\":%llu,\"op\":\"%s\"", static_cast<unsigned long long>(operation->n),
        operation->name);
    if (operation->target != nullptr)
        add_text(&line, "target", operation->target, strlen(operation->target));
    add_number(&line, "number", operation->number);
    if (strcmp(operation->name, "seek") == 0) // the one that can be negative
        add(&line, ",\"offset\":%lld", static_cast<long long>(operation->offset));
    else
        add_number(&line, "offset", operation->offset);
    add_number(&line, "length", operation->length);
    if (operation->error != 0)
        add(&line, ",\"result\":-1,\"error\":\"%s\"", strerrorname_np(operation->error));
    else
        add_number(&line, "result", operation->result);
    add_number(&line, "duration_us", operation->duration_us);
    add_number(&line, "received", operation->received);
    add_number(&line, "sent", operation->sent);
    add_number(&line, "calls", operation->calls);
    if (strcmp(operation->name, "kick") == 0)
        add(&line, ",\"line\":%lld,\"level\":%lld", static_cast<long long>(operation->line),
            static_cast<long long>(operation->level));
    if (strcmp(operation->name, "datagram") == 0)
        add_text(&line, "text", static_cast<const char *>(operation->data),
                 static_cast<size_t>(operation->data_size));
    if (operation->fault != nullptr)
        add(&line, ",\"fault\":\"%s\"", operation->fault);
    add(&line, ",\"virtual_us\":%lld,\"real_us\":%lld}\n",
        static_cast<long long>(operation->virtual_us), static_cast<long long>(operation->real_us));
    // A lost log is noticed by the one who reads it: the numbers have a gap.
    (void)!real.write(fd, line.text, line.length);
}

const char *setting(const char *name, const char *otherwise)
{
    const char *value = getenv(name);
    return value == nullptr ? otherwise : value;
}

} // namespace

void sim_start_from_environment()
{
    sim_config config;
    config.folder = getenv("SIMDEV_FOLDER");
    if (config.folder == nullptr)
        return;
    config.fast = setting("SIMDEV_FAST", "0")[0] == '1';
    config.grace_ms = atoi(setting("SIMDEV_GRACE_MS", "1000"));
    config.ports = setting("SIMDEV_PORTS", "");
    config.faults = setting("SIMDEV_FAULTS", "");
    config.receivers = setting("SIMDEV_RECEIVERS", "");
    config.seed = strtoull(setting("SIMDEV_SEED", "0"), nullptr, 10);
    config.script_us = strtoll(setting("SIMDEV_SCRIPT_US", "0"), nullptr, 10);
    if (getenv("SIMDEV_LOG_FD") != nullptr)
        config.sink = write_line;
    char error[512];
    if (sim_start(&config, error, sizeof error) == 0) {
        sim_operation operation = make_operation("start");
        if (config.sink != nullptr) {
            fcntl(atoi(getenv("SIMDEV_LOG_FD")), F_SETFD, FD_CLOEXEC); // not for the script
            log_operation(&operation);
        }
        if (setting("SIMDEV_QUIET", "0")[0] == '1')
            model.sink = nullptr;
        return;
    }
    (void)!real.write(STDERR_FILENO, error, strlen(error));
    (void)!real.write(STDERR_FILENO, "\n", 1);
    syscall(SYS_exit_group, exit_unusable);
}
