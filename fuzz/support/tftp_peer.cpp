// SPDX-License-Identifier: GPL-2.0-or-later
#include "fuzz/support/tftp_peer.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include "platform/bytes.h"

namespace fuzz {

std::span<const uint8_t> tftp_peer::next(size_t count)
{
    const auto taken = script.first(std::min(count, script.size()));
    script = script.subspan(taken.size());
    return taken;
}

void tftp_peer::next_datagram()
{
    if (repeats > 0) {
        repeats--;
        return;
    }
    control = script.empty() ? uint8_t{datagram_none} : next(1)[0];
    repeats = control >> 4;
    length = control % datagram_kinds == datagram_raw ? 600 : 512;
    if (control % datagram_kinds != datagram_none && (control & datagram_long) == 0)
        length = script.empty() ? 0 : next(1)[0];
}

bool tftp_peer::readable()
{
    if (repeats == 0 && !script.empty() && script[0] % (2 * datagram_kinds) == datagram_none) {
        next(1);
        return false;
    }
    return repeats > 0 || !script.empty();
}

ssize_t tftp_peer::receive(void *buffer, size_t size, uint16_t *port)
{
    next_datagram();
    *port = (control & datagram_foreign) != 0 ? 4712 : 4711;
    const int kind = control % datagram_kinds;
    errno = ECONNREFUSED;
    if (kind == datagram_none)
        return -1;
    const auto number = static_cast<uint16_t>(awaited - (kind == datagram_duplicate ? 1 : 0));
    std::vector<uint8_t> packet = {0, 3, static_cast<uint8_t>(number >> 8),
                                   static_cast<uint8_t>(number)};
    packet.resize(packet.size() + length, packet.back());
    if (kind == datagram_raw) {
        const auto raw = next(length);
        packet.assign(raw.data(), raw.data() + raw.size());
    }
    const size_t count = std::min(size, packet.size());
    std::copy_n(packet.data(), count, static_cast<uint8_t *>(buffer));
    return static_cast<ssize_t>(count);
}

void tftp_peer::take(const void *packet, size_t size)
{
    const auto *bytes = static_cast<const uint8_t *>(packet);
    if (size >= 2 && load_be16(bytes) == 1)
        awaited = 1;
    if (size >= 4 && load_be16(bytes) == 4)
        awaited = static_cast<uint16_t>(load_be16(bytes + 2) + 1);
}

} // namespace fuzz
