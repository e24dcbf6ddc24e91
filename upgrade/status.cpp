// SPDX-License-Identifier: GPL-2.0-or-later
#include "upgrade/status.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/device.h"
#include "platform/text.h"
#include "upgrade/watchdog.h"

namespace {

constexpr int send_timeout_seconds = 2; // a receiver that does not read must not stop the upgrade

ssize_t send_to(int fd, const char *path, const char *text)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    safe_strncpy(address.sun_path, path, sizeof address.sun_path);
    // Kept: the address has the length of the whole structure, not just of the path.
    return sendto(fd, text, strlen(text), 0, reinterpret_cast<const sockaddr *>(&address),
                  sizeof address);
}

// Echoes `text` and sends it to both receivers; `report` says when the first cannot be reached.
void send_status(const char *text, bool report)
{
    fprintf(stderr, "%s\n", text);
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    const timeval timeout = {.tv_sec = send_timeout_seconds, .tv_usec = 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    const ssize_t sent = send_to(fd, status_receivers[0], text);
    if (sent < 0 && report)
        fprintf(stderr, "sendto %s error: %s\n", status_receivers[0], strerror(errno));
    send_to(fd, status_receivers[1], text);
    close(fd);
}

} // namespace

void send_percentage(upgrade_context *context)
{
    char text[60];
    snprintf(text, sizeof text, "%s%d", status_percentage, context->percent);
    send_status(text, false);
}

void send_stage(upgrade_context *context)
{
    char text[60];
    snprintf(text, sizeof text, "%s%s", status_stage, context->stage);
    send_status(text, false);
    context->received = 0;
    context->percent = 0;
    send_percentage(context);
}

void send_error(upgrade_context * /*context*/, const char *text)
{
    char message[128];
    snprintf(message, sizeof message, "%s%s", status_error, text);
    send_status(message, true);
}

int upgrade_callback(void *argument, int count)
{
    auto *context = static_cast<upgrade_context *>(argument);
    kick_watchdog(&context->watchdog);
    if (context->stage == nullptr && context->total == 0) {
        context->total = context->downloader->ops->length(context->downloader);
        context->stage = "DOWNLOADING";
        send_stage(context);
    }
    // 32 bits that wrap around, as on the device, without overflow of signed numbers.
    const uint32_t received =
        static_cast<uint32_t>(context->received) + static_cast<uint32_t>(count);
    context->received = static_cast<int32_t>(received);
    if (context->total <= 0)
        return 1;
    const int32_t percent = static_cast<int32_t>(received * 100) / context->total;
    if (percent > context->percent) {
        context->percent = percent;
        send_percentage(context);
    }
    return 1;
}
