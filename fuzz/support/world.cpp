// SPDX-License-Identifier: GPL-2.0-or-later
#include "fuzz/support/world.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sys/mman.h>
#include <unordered_set>

#include "fuzz/support/fuzz.h"
#include "fuzz/support/tftp_peer.h"
#include "tools/simdev/core/real.h"

namespace {

struct descriptor {
    bool datagrams = false;
    fuzz::connection *connection = nullptr; // of a connected stream
    scripted_peer peer = {};                // of the same
    std::vector<uint8_t> *device = nullptr; // what a device holds; null: a socket
    size_t position = 0;
};

struct state {
    fuzz::world *world;
    nth_call calls = {};
    std::map<int, descriptor> descriptors = {};
    scripted_peers streams = {};
    fuzz::tftp_peer datagrams = {};
    std::unordered_set<void *> memory = {};
};

thread_local state *current = nullptr;
sim_real real_system;

int new_descriptor(const descriptor &value)
{
    int fd = fuzz::first_descriptor;
    while (current->descriptors.contains(fd))
        fd++;
    fuzz::require(fd < FD_SETSIZE, "a run needs no more than a few");
    current->descriptors[fd] = value;
    return fd;
}

descriptor *find(int fd)
{
    const auto found = current->descriptors.find(fd);
    if (found != current->descriptors.end())
        return &found->second;
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
    return new_descriptor({.device = &device->second});
}

int open_socket(int /*domain*/, int type, int /*protocol*/)
{
    if (fuzz::fails_now())
        return -1;
    return new_descriptor({.datagrams = type != SOCK_STREAM});
}

int close_descriptor(int fd)
{
    if (current->descriptors.erase(fd) == 1)
        return 0;
    errno = EBADF;
    return -1;
}

fuzz::connection *add_connection(const fuzz::connection &value)
{
    current->world->connections.push_back(value);
    return &current->world->connections.back();
}

int connect_stream(descriptor *socket, const sockaddr *address, socklen_t /*size*/)
{
    errno = ECONNREFUSED;
    if (current->world->refuses && current->streams.script.empty())
        return -1;
    const auto *to = reinterpret_cast<const sockaddr_in *>(address);
    socket->connection = add_connection(
        {.address = inet_ntoa(to->sin_addr) + (":" + std::to_string(ntohs(to->sin_port)))});
    socket->peer = current->streams.connect();
    return 0;
}

// Any name but one that begins with "unknown" is this machine's, unless it is an address.
hostent *find_host(const char *name)
{
    static in_addr address;
    if (inet_aton(name, &address) == 0)
        address.s_addr = htonl(INADDR_LOOPBACK);
    h_errno = HOST_NOT_FOUND;
    static char *addresses[] = {reinterpret_cast<char *>(&address), nullptr};
    static hostent host = {nullptr, nullptr, AF_INET, sizeof address, addresses};
    return fuzz::fails_now() || strncmp(name, "unknown", 7) == 0 ? nullptr : &host;
}

ssize_t read_bytes(descriptor *from, void *buffer, size_t size)
{
    errno = ENOTCONN;
    if (from->device == nullptr)
        return from->connection != nullptr ? from->peer.read(buffer, size) : -1;
    const size_t position = std::min(from->position, from->device->size());
    const size_t count = std::min(size, from->device->size() - position);
    std::copy_n(from->device->data() + position, count, static_cast<uint8_t *>(buffer));
    from->position = position + count;
    return static_cast<ssize_t>(count);
}

ssize_t write_bytes(descriptor *to, const void *buffer, size_t size)
{
    if (to->device != nullptr) {
        to->device->resize(std::max(to->device->size(), to->position + size));
        std::copy_n(static_cast<const uint8_t *>(buffer), size, to->device->data() + to->position);
        to->position += size;
        return static_cast<ssize_t>(size);
    }
    const ssize_t count = to->peer.write(buffer, size);
    if (count > 0 && to->connection != nullptr)
        to->connection->received.append(static_cast<const char *>(buffer), size);
    return count;
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

// One descriptor is waited for at a time.
int wait_for(int count, fd_set *readable, fd_set * /*writable*/, fd_set *exceptional,
             timeval *timeout)
{
    current->world->waited_seconds = timeout->tv_sec;
    descriptor *waited = fuzz::fails_now() ? nullptr : find(count - 1);
    if (waited == nullptr)
        return -1;
    if (exceptional != nullptr)
        FD_ZERO(exceptional);
    if (readable == nullptr)
        return current->world->writable == nullptr || current->world->writable() ? 1 : 0;
    if (waited->datagrams ? current->datagrams.readable() : waited->peer.readable())
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
    return current != nullptr ? 0 : real_system.clock_nanosleep(clock, flags, time, left);
}

// Released at the end of the run, unless it is null.
void *keep(void *memory)
{
    if (memory != nullptr)
        current->memory.insert(memory);
    return memory;
}

void *mapping(void *memory)
{
    return memory == nullptr ? MAP_FAILED : memory;
}

int protect(void *memory)
{
    fuzz::require(current->memory.contains(memory), "only memory that is there is protected");
    return fuzz::fails_now() ? -1 : 0;
}

int no_error(void *value, socklen_t size)
{
    memset(value, 0, size);
    return fuzz::fails_now() ? -1 : 0;
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
    current = new state{.world = world, .streams = {world->script}, .datagrams = {world->script}};
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

int run::connected_to(const std::string &script)
{
    connection *added = add_connection({.address = "connected", .script = script});
    const auto *bytes = reinterpret_cast<const uint8_t *>(added->script.data());
    return new_descriptor({.connection = added, .peer = {{bytes, script.size()}}});
}

size_t run::open_descriptors()
{
    return current->descriptors.size();
}

size_t run::allocations()
{
    return current->memory.size();
}

bool fails_now()
{
    current->calls.fails_at = current->world->fault; // which a target may change
    return current->calls.fails();
}

} // namespace fuzz

// Memory while calls are caught: each allocation is counted, may fail, and is known to the run. And
// the one call on a socket that simdev's face leaves to the system. The names are those that the
// linker makes of --wrap; fuzz/CMakeLists.txt has the list.

// A call that gives `answer` while calls are caught, else what it was meant to give.
#define REDIRECTED(result, name, parameters, arguments, answer)                                    \
    extern "C" result __real_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters                                                     \
    {                                                                                              \
        return current != nullptr ? (answer) : __real_##name arguments;                            \
    }
#define UNLESS_IT_FAILS(memory) keep(fuzz::fails_now() ? nullptr : (memory))

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
REDIRECTED(void *, malloc, (size_t size), (size), UNLESS_IT_FAILS(__real_malloc(size)))
REDIRECTED(void *, calloc, (size_t count, size_t size), (count, size),
           UNLESS_IT_FAILS(__real_calloc(count, size)))
REDIRECTED(char *, strdup, (const char *text), (text),
           static_cast<char *>(UNLESS_IT_FAILS(__real_strdup(text))))
REDIRECTED(void, free, (void *memory), (memory),
           (current->memory.erase(memory), __real_free(memory)))
// A block of the block buffer comes from the heap, where the sanitizer knows its end.
REDIRECTED(void *, mmap64,
           (void *address, size_t size, int protection, int flags, int fd, off_t offset),
           (address, size, protection, flags, fd, offset),
           mapping(UNLESS_IT_FAILS(__real_calloc(1, size))))
REDIRECTED(int, munmap, (void *address, size_t size), (address, size), (free(address), 0))
REDIRECTED(int, mprotect, (void *address, size_t size, int protection), (address, size, protection),
           protect(address))
REDIRECTED(int, getsockopt, (int fd, int level, int name, void *value, socklen_t *size),
           (fd, level, name, value, size), no_error(value, *size))
// NOLINTEND(bugprone-reserved-identifier)
