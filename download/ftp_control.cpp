// SPDX-License-Identifier: GPL-2.0-or-later
#include "download/ftp_control.h"

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "download/safe_io.h"
#include "platform/number.h"

namespace {

constexpr diagnostic_place at_socket = {diagnostic_ftp, 101, "open_socket"};
constexpr diagnostic_place at_reply = {diagnostic_ftp, 127, "ftpcmd"};

constexpr size_t command_size = 1024;
constexpr size_t read_size = ftp_reply_size - 2;

/// Whether the command, if there is one, fitted its buffer; whether it arrives shows in the reply.
bool send_command(const char *command, const char *argument, int socket)
{
    if (command == nullptr)
        return true;
    char buffer[command_size];
    const int length =
        snprintf(buffer, sizeof(buffer), "%s%s\r\n", command, argument != nullptr ? argument : "");
    if (length < 0 || static_cast<size_t>(length) >= sizeof(buffer))
        return false;
    safe_write(socket, buffer, static_cast<size_t>(length));
    return true;
}

bool complete(const char *reply)
{
    return strlen(reply) >= ftp_reply_text && isdigit(static_cast<unsigned char>(reply[0])) != 0 &&
           reply[ftp_reply_text - 1] == ' ';
}

int64_t milliseconds_now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

/// From now on a read of `socket` fails after so long without a byte.
void limit_silence(int socket, int64_t milliseconds)
{
    const timeval silence = {.tv_sec = static_cast<time_t>(milliseconds / 1000),
                             .tv_usec = static_cast<suseconds_t>(milliseconds % 1000 * 1000)};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &silence, sizeof(silence));
}

/// One read of a reply. False when nothing more will come.
bool read_some(int socket, char *reply)
{
    // Not safe_read: an interrupted read is reported like every other failure, then repeated.
    const ssize_t length = read(socket, reply, read_size);
    const int error = length == 0 ? ECONNRESET : errno;
    reply[length > 0 ? length : 0] = '\0';
    if (char *line_end = strstr(reply, "\r\n"); line_end != nullptr)
        *line_end = '\0';
    if (length > 0)
        return true;
    diagnose(at_reply, "fgets error: %s", strerror(error));
    return error == EINTR;
}

/// The next reply, as ftpcmd; within `seconds` in all unless they are 0.
int read_reply(int socket, char *reply, int seconds)
{
    const int64_t limit = int64_t{seconds} * 1000;
    const int64_t deadline = milliseconds_now() + limit;
    int64_t left = limit;
    for (int reads = 0; reads < ftp_reply_read_limit; reads++) {
        if (left > 0)
            limit_silence(socket, left);
        if (!read_some(socket, reply))
            return -1;
        if (complete(reply))
            return number_from_text(reply, 10, nullptr);
        if (seconds > 0 && (left = deadline - milliseconds_now()) <= 0)
            break;
    }
    reply[0] = '\0';
    diagnose(at_reply, "fgets error: %s", strerror(EAGAIN)); // as silence does
    return -1;
}

} // namespace

int open_socket(const sockaddr_in *address)
{
    const int result = socket(AF_INET, SOCK_STREAM, 0);
    if (result < 0) {
        diagnose(at_socket, "socket error: %s", strerror(errno));
        return -1;
    }
    // The kernel gives up connecting well before this.
    const timeval silence = {.tv_sec = ftp_silence_seconds, .tv_usec = 0};
    setsockopt(result, SOL_SOCKET, SO_RCVTIMEO, &silence, sizeof(silence));
    setsockopt(result, SOL_SOCKET, SO_SNDTIMEO, &silence, sizeof(silence));
    if (connect(result, reinterpret_cast<const sockaddr *>(address), sizeof(*address)) != 0) {
        diagnose(at_connect, "connect error: %s", strerror(errno));
        close(result);
        return -1;
    }
    return result;
}

int ftpcmd(const char *command, const char *argument, int socket, char *reply)
{
    reply[0] = '\0';
    return send_command(command, argument, socket) ? read_reply(socket, reply, 0) : -1;
}

int ftp_closing_reply(const char *command, int socket, char *reply)
{
    reply[0] = '\0';
    send_command(command, nullptr, socket);
    return read_reply(socket, reply, ftp_closing_seconds);
}
