// SPDX-License-Identifier: GPL-2.0-or-later
#include "fuzz/support/world.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <unistd.h>
#include <unordered_set>

#include "fuzz/support/fuzz.h"
#include "fuzz/support/wrap.h"
#include "tools/simdev/core/scripted_peer.h"

namespace {

constexpr size_t descriptor_count = 256;
constexpr size_t packet_size = 516;
constexpr uint16_t transfer_port = 4711;

enum descriptor_kind { free_descriptor, stream_descriptor, datagram_descriptor, device_descriptor };

struct descriptor {
    descriptor_kind kind = free_descriptor;
    bool connected = false;
    scripted_peer peer = {};
    size_t position = 0; // in the device
    std::vector<uint8_t> *device = nullptr;
};

struct state {
    fuzz::world *world;
    nth_call calls = {};
    std::array<descriptor, descriptor_count> descriptors;
    scripted_peers peers = {};
    size_t next_datagram = 0; // in the script of datagrams
    unsigned whole_blocks = 0;
    uint16_t awaited = 0;
    bool port_is_known = false;
    std::unordered_set<void *> memory;
};

thread_local state *current = nullptr;

descriptor &at(int fd)
{
    return current->descriptors[static_cast<size_t>(fd - fuzz::first_descriptor)];
}

int new_descriptor(descriptor value)
{
    for (size_t index = 0; index < descriptor_count; index++) {
        if (current->descriptors[index].kind == free_descriptor) {
            current->descriptors[index] = value;
            return fuzz::first_descriptor + static_cast<int>(index);
        }
    }
    fuzz::require(false, "a run needs no more than a few descriptors");
    return -1;
}

uint8_t next_script_byte()
{
    const std::vector<uint8_t> &script = current->world->datagrams;
    return current->next_datagram < script.size() ? script[current->next_datagram++] : uint8_t{0};
}

std::vector<uint8_t> script_bytes(size_t count)
{
    const std::vector<uint8_t> &script = current->world->datagrams;
    const size_t taken = std::min(count, script.size() - current->next_datagram);
    const auto begin = script.begin() + static_cast<std::ptrdiff_t>(current->next_datagram);
    current->next_datagram += taken;
    return {begin, begin + static_cast<std::ptrdiff_t>(taken)};
}

std::vector<uint8_t> tftp_block(unsigned number, size_t size)
{
    std::vector<uint8_t> packet = {0, 3, static_cast<uint8_t>(number >> 8),
                                   static_cast<uint8_t>(number)};
    packet.resize(packet.size() + size, static_cast<uint8_t>(number));
    return packet;
}

bool datagram_is(fuzz::datagram_kind kind)
{
    const std::vector<uint8_t> &script = current->world->datagrams;
    return current->whole_blocks == 0 && current->next_datagram < script.size() &&
           script[current->next_datagram] % fuzz::datagram_kind_count == kind;
}

// The datagram of the script that comes next; none for a failed receive.
std::optional<std::vector<uint8_t>> next_datagram(uint16_t *port)
{
    if (current->whole_blocks > 0) {
        current->whole_blocks--;
        return tftp_block(current->awaited, packet_size - 4);
    }
    switch (next_script_byte() % fuzz::datagram_kind_count) {
    case fuzz::datagram_whole:
        current->whole_blocks = next_script_byte();
        return tftp_block(current->awaited, packet_size - 4);
    case fuzz::datagram_part:
        return tftp_block(current->awaited, next_script_byte());
    case fuzz::datagram_duplicate:
        return tftp_block(current->awaited - 1U, packet_size - 4);
    case fuzz::datagram_foreign:
        *port = static_cast<uint16_t>(transfer_port + 1);
        return script_bytes(next_script_byte());
    case fuzz::datagram_large:
        return script_bytes(600);
    case fuzz::datagram_failure:
        return std::nullopt;
    default:
        return script_bytes(next_script_byte());
    }
}

} // namespace

namespace fuzz {

run::run(world *world)
{
    current = new state{.world = world,
                        .calls = {.fails_at = world->fault},
                        .descriptors = {},
                        .peers = {world->streams},
                        .memory = {}};
}

run::~run()
{
    state *ended = current;
    current = nullptr;
    for (void *memory : ended->memory)
        free(memory);
    delete ended;
}

size_t run::open_descriptors()
{
    size_t count = 0;
    for (const descriptor &each : current->descriptors)
        count += each.kind != free_descriptor ? 1 : 0;
    return count;
}

size_t run::allocations()
{
    return current->memory.size();
}

bool caught()
{
    return current != nullptr;
}

bool fails_now()
{
    return current->calls.fails();
}

bool is_ours(int fd)
{
    return caught() && fd >= first_descriptor &&
           fd < first_descriptor + static_cast<int>(descriptor_count);
}

int open_device(const char *path)
{
    const auto device = current->world->devices.find(path);
    if (device == current->world->devices.end()) {
        errno = ENOENT;
        return -1;
    }
    return new_descriptor({.kind = device_descriptor, .device = &device->second});
}

int open_socket(int type)
{
    return new_descriptor({.kind = type == 1 ? stream_descriptor : datagram_descriptor});
}

int close_descriptor(int fd)
{
    if (at(fd).kind == free_descriptor) {
        errno = EBADF;
        return -1;
    }
    at(fd) = {};
    return 0;
}

int connect_stream(int fd)
{
    at(fd).connected = true;
    at(fd).peer = current->peers.connect();
    return 0;
}

bool readable(int fd)
{
    descriptor &socket = at(fd);
    if (socket.kind == datagram_descriptor) {
        if (current->whole_blocks == 0 && datagram_is(datagram_silence)) {
            current->next_datagram++;
            return false;
        }
        return current->whole_blocks > 0 ||
               current->next_datagram < current->world->datagrams.size();
    }
    return socket.peer.readable();
}

ssize_t read_descriptor(int fd, void *buffer, size_t size)
{
    descriptor &from = at(fd);
    auto *bytes = static_cast<uint8_t *>(buffer);
    if (from.kind == device_descriptor) {
        const size_t position = std::min(from.position, from.device->size());
        const size_t count = std::min(size, from.device->size() - position);
        std::copy_n(from.device->data() + position, count, bytes);
        from.position = position + count;
        return static_cast<ssize_t>(count);
    }
    if (from.kind != stream_descriptor || !from.connected) {
        errno = ENOTCONN;
        return -1;
    }
    return from.peer.read(buffer, size);
}

ssize_t write_descriptor(int fd, const void *buffer, size_t size)
{
    descriptor &to = at(fd);
    const auto *bytes = static_cast<const uint8_t *>(buffer);
    if (to.kind != device_descriptor) {
        to.peer.take(buffer, size);
        return static_cast<ssize_t>(size);
    }
    if (to.device->size() < to.position + size)
        to.device->resize(to.position + size);
    std::copy_n(bytes, size, to.device->begin() + static_cast<std::ptrdiff_t>(to.position));
    to.position += size;
    return static_cast<ssize_t>(size);
}

ssize_t receive_datagram(void *buffer, size_t size, uint16_t *port)
{
    *port = transfer_port;
    const std::optional<std::vector<uint8_t>> packet = next_datagram(port);
    if (!packet) {
        errno = ECONNREFUSED;
        return -1;
    }
    const size_t count = std::min(size, packet->size());
    std::copy_n(packet->data(), count, static_cast<uint8_t *>(buffer));
    return static_cast<ssize_t>(count);
}

ssize_t send_datagram(const uint8_t *packet, size_t size)
{
    if (size >= 2 && packet[1] == 1)
        current->awaited = 1;
    if (size >= 4 && packet[1] == 4)
        current->awaited = static_cast<uint16_t>((packet[2] << 8 | packet[3]) + 1);
    return static_cast<ssize_t>(size);
}

off_t seek_device(int fd, off_t offset, int whence)
{
    descriptor &device = at(fd);
    const off_t base = whence == SEEK_END   ? static_cast<off_t>(device.device->size())
                       : whence == SEEK_CUR ? static_cast<off_t>(device.position)
                                            : 0;
    if (base + offset < 0) {
        errno = EINVAL;
        return -1;
    }
    device.position = static_cast<size_t>(base + offset);
    return base + offset;
}

void *keep(void *memory)
{
    if (memory != nullptr)
        current->memory.insert(memory);
    return memory;
}

void forget(void *memory)
{
    current->memory.erase(memory);
}

} // namespace fuzz
