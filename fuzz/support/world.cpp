// SPDX-License-Identifier: GPL-2.0-or-later
#include "fuzz/support/world.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unordered_set>

#include "fuzz/support/fuzz.h"
#include "fuzz/support/tftp_peer.h"
#include "tools/simdev/core/real.h"
#include "tools/simdev/core/scripted_peer.h"

namespace {

enum descriptor_kind { free_descriptor, stream_socket, datagram_socket, device_file };

struct descriptor {
    descriptor_kind kind = free_descriptor;
    bool connected = false;
    scripted_peer peer = {};                // of a connected stream
    std::vector<uint8_t> *device = nullptr; // what a device holds
    size_t position = 0;
};

struct state {
    fuzz::world *world;
    nth_call calls = {};
    std::array<descriptor, 256> descriptors = {};
    scripted_peers streams = {};
    fuzz::tftp_peer datagrams = {};
    std::unordered_set<void *> memory = {};
};

thread_local state *current = nullptr;
sim_real real_system;

int new_descriptor(const descriptor &value)
{
    descriptor *place = std::ranges::find(current->descriptors, free_descriptor, &descriptor::kind);
    fuzz::require(place != current->descriptors.end(), "a run needs no more than a few");
    *place = value;
    return fuzz::first_descriptor + static_cast<int>(place - current->descriptors.begin());
}

descriptor *find(int fd)
{
    const auto index = static_cast<size_t>(fd - fuzz::first_descriptor);
    if (fd >= fuzz::first_descriptor && index < current->descriptors.size() &&
        current->descriptors[index].kind != free_descriptor)
        return &current->descriptors[index];
    errno = EBADF;
    return nullptr;
}

// A call of the system on a descriptor: fails where it is the one to fail and for what is none of
// the world, else it is `answer`.
template<auto answer, typename Result, typename... Rest> Result call_on(int fd, Rest... rest)
{
    descriptor *found = fuzz::fails_now() ? nullptr : find(fd);
    return found == nullptr ? -1 : answer(found, rest...);
}

int open_device(const char *path, int /*flags*/, ...)
{
    const auto device = current->world->devices.find(path);
    errno = ENOENT;
    if (fuzz::fails_now() || device == current->world->devices.end())
        return -1;
    return new_descriptor({.kind = device_file, .device = &device->second});
}

int open_socket(int /*domain*/, int type, int /*protocol*/)
{
    if (fuzz::fails_now())
        return -1;
    return new_descriptor({.kind = type == SOCK_STREAM ? stream_socket : datagram_socket});
}

int close_descriptor(int fd)
{
    descriptor *closed = find(fd);
    if (closed == nullptr)
        return -1;
    *closed = {};
    return 0;
}

int connect_stream(descriptor *socket, const sockaddr * /*address*/, socklen_t /*size*/)
{
    socket->connected = true;
    socket->peer = current->streams.connect();
    return 0;
}

// Any host but one that begins with "unknown" is this machine.
hostent *find_host(const char *name)
{
    static in_addr address = {htonl(INADDR_LOOPBACK)};
    static char *addresses[] = {reinterpret_cast<char *>(&address), nullptr};
    static hostent host = {nullptr, nullptr, AF_INET, sizeof address, addresses};
    return fuzz::fails_now() || strncmp(name, "unknown", 7) == 0 ? nullptr : &host;
}

ssize_t read_bytes(descriptor *from, void *buffer, size_t size)
{
    errno = ENOTCONN;
    if (from->kind != device_file)
        return from->connected ? from->peer.read(buffer, size) : -1;
    const size_t position = std::min(from->position, from->device->size());
    const size_t count = std::min(size, from->device->size() - position);
    std::copy_n(from->device->data() + position, count, static_cast<uint8_t *>(buffer));
    from->position = position + count;
    return static_cast<ssize_t>(count);
}

ssize_t write_bytes(descriptor *to, const void *buffer, size_t size)
{
    if (to->kind == device_file) {
        to->device->resize(std::max(to->device->size(), to->position + size));
        std::copy_n(static_cast<const uint8_t *>(buffer), size, to->device->data() + to->position);
        to->position += size;
    } else {
        to->peer.take(buffer, size);
    }
    return static_cast<ssize_t>(size);
}

// From the end or from the beginning.
off64_t seek_device(descriptor *device, off64_t offset, int whence)
{
    offset += whence == SEEK_END ? static_cast<off64_t>(device->device->size()) : 0;
    errno = EINVAL;
    if (offset < 0)
        return -1;
    device->position = static_cast<size_t>(offset);
    return offset;
}

ssize_t receive_datagram(descriptor * /*socket*/, void *buffer, size_t size, int /*flags*/,
                         sockaddr *address, socklen_t * /*address_size*/)
{
    uint16_t port = 0;
    const ssize_t count = current->datagrams.receive(buffer, size, &port);
    reinterpret_cast<sockaddr_in *>(address)->sin_port = htons(port);
    return count;
}

ssize_t send_datagram(descriptor * /*socket*/, const void *packet, size_t size, int /*flags*/,
                      const sockaddr * /*address*/, socklen_t /*address_size*/)
{
    current->datagrams.take(packet, size);
    return static_cast<ssize_t>(size);
}

// One descriptor is waited for at a time; everything can be written at once.
int wait_for(int count, fd_set *readable, fd_set * /*writable*/, fd_set *exceptional,
             timeval * /*timeout*/)
{
    descriptor *waited = fuzz::fails_now() ? nullptr : find(count - 1);
    if (waited == nullptr)
        return -1;
    if (exceptional != nullptr)
        FD_ZERO(exceptional);
    if (readable == nullptr ||
        (waited->kind == datagram_socket ? current->datagrams.readable() : waited->peer.readable()))
        return 1;
    FD_ZERO(readable);
    return 0;
}

int set_option(descriptor * /*socket*/, int /*level*/, int /*name*/, const void * /*value*/,
               socklen_t /*size*/)
{
    return 0;
}

int control_device(int fd, ioctl_request /*request*/, ...)
{
    return fuzz::fails_now() || find(fd) == nullptr ? -1 : 0;
}

// libFuzzer has a thread that sleeps.
int rest(clockid_t clock, int flags, const timespec *time, timespec *left)
{
    return fuzz::caught() ? 0 : real_system.clock_nanosleep(clock, flags, time, left);
}

void take_the_place_of_the_system()
{
    real_find();
    real_system = real;
    real.open64 = open_device;
    real.read = call_on<read_bytes>;
    real.write = call_on<write_bytes>;
    real.lseek64 = call_on<seek_device>;
    real.close = close_descriptor;
    real.ioctl = control_device;
    real.clock_nanosleep = rest;
    real.select = wait_for;
    real.socket = open_socket;
    real.connect = call_on<connect_stream>;
    real.sendto = call_on<send_datagram>;
    real.recvfrom = call_on<receive_datagram>;
    real.setsockopt = call_on<set_option>;
    real.gethostbyname = find_host;
}

} // namespace

namespace fuzz {

run::run(world *world)
{
    take_the_place_of_the_system();
    current = new state{.world = world,
                        .calls = {.fails_at = world->fault},
                        .streams = {world->script},
                        .datagrams = {world->script}};
}

run::~run()
{
    const state *ended = current;
    current = nullptr;
    real = real_system;
    for (void *memory : ended->memory)
        free(memory);
    delete ended;
}

size_t run::open_descriptors()
{
    const auto &all = current->descriptors;
    const auto unused = std::ranges::count(all, free_descriptor, &descriptor::kind);
    return all.size() - static_cast<size_t>(unused);
}

size_t run::allocations()
{
    return current->memory.size();
}

bool run::keeps(void *memory)
{
    return current->memory.contains(memory);
}

bool caught()
{
    return current != nullptr;
}

bool fails_now()
{
    return current->calls.fails();
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
