// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/scripted_peer.h"

#include <algorithm>
#include <cerrno>

uint8_t scripted_peer::control() const
{
    return position < script.size() ? script[position] : uint8_t{peer_close};
}

bool scripted_peer::readable()
{
    if (control() == peer_awaits_line)
        return lines > 0;
    if (control() != peer_silence)
        return true;
    position++;
    return false;
}

ssize_t scripted_peer::read(void *buffer, size_t size)
{
    auto *bytes = static_cast<uint8_t *>(buffer);
    size_t count = 0;
    while (control() == peer_pause || (control() == peer_awaits_line && lines > 0)) {
        lines -= control() == peer_awaits_line ? 1 : 0;
        position++;
    }
    for (; count < size; count++) {
        const uint8_t byte = control();
        const bool ends = byte >= peer_resets && byte <= peer_fails;
        if (ends && byte != peer_literal) {
            if (count > 0 || byte == peer_close)
                break;
            position += byte == peer_awaits_line ? 0 : 1;
            errno = byte == peer_interrupts ? EINTR : byte == peer_fails ? EIO : EAGAIN;
            return -1;
        }
        position += byte == peer_literal ? 1 : 0;
        bytes[count] = control();
        position++;
    }
    return static_cast<ssize_t>(count);
}

ssize_t scripted_peer::write(const void *data, size_t size)
{
    errno = EPIPE;
    if (control() == peer_resets)
        return -1;
    const auto *bytes = static_cast<const char *>(data);
    lines += static_cast<size_t>(std::count(bytes, bytes + size, '\n'));
    return static_cast<ssize_t>(size);
}

scripted_peer scripted_peers::connect()
{
    size_t end = 0;
    while (end < script.size() && script[end] != peer_close)
        end += script[end] == peer_literal ? 2 : 1;
    end = std::min(end, script.size());
    const scripted_peer peer = {script.first(end)};
    script = script.subspan(std::min(end + 1, script.size()));
    return peer;
}

bool nth_call::fails()
{
    if (++count != fails_at)
        return false;
    errno = EIO;
    return true;
}
