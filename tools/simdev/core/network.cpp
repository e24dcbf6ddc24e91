// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/core/network.h"

#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/simdev/core/clock.h"
#include "tools/simdev/core/faults.h"
#include "tools/simdev/core/log.h"
#include "tools/simdev/core/real.h"

namespace {

struct port_pair {
    bool udp;
    in_port_t device; // both in network byte order
    in_port_t actual;
};

struct host_pair {
    char name[128];
    in_addr address;
};

struct {
    bool real_network;
    std::array<port_pair, 16> ports;
    size_t port_count;
    std::array<host_pair, 16> hosts;
    size_t host_count;
} state;

bool is_port(unsigned long number)
{
    return number > 0 && number <= 65535;
}

bool take_port(const char *text)
{
    const bool udp = strncmp(text, "udp:", 4) == 0;
    if ((!udp && strncmp(text, "tcp:", 4) != 0) || state.port_count == state.ports.size())
        return false;
    char *end = nullptr;
    const unsigned long device = strtoul(text + 4, &end, 10);
    if (*end != '=')
        return false;
    const unsigned long actual = strtoul(end + 1, &end, 10);
    if (*end != '\0' || !is_port(device) || !is_port(actual))
        return false;
    state.ports[state.port_count++] = {udp, htons(static_cast<uint16_t>(device)),
                                       htons(static_cast<uint16_t>(actual))};
    return true;
}

bool take_host(const char *text)
{
    const size_t length = strcspn(text, "=");
    host_pair pair = {};
    if (length == 0 || text[length] != '=' || length >= sizeof pair.name ||
        state.host_count == state.hosts.size() ||
        inet_pton(AF_INET, text + length + 1, &pair.address) != 1)
        return false;
    memcpy(pair.name, text, length);
    state.hosts[state.host_count++] = pair;
    return true;
}

// Calls `take` for each piece of `list` between commas; false with a line in `error` as soon as it
// gives false.
bool each_piece(const char *list, bool (*take)(const char *), char *error, size_t error_size)
{
    while (*list != '\0') {
        char piece[256];
        const size_t length = strcspn(list, ",");
        const bool fits = length < sizeof piece;
        memcpy(piece, list, fits ? length : 0);
        piece[fits ? length : 0] = '\0';
        if (!fits || (length > 0 && !take(piece))) {
            snprintf(error, error_size, "\"%s\" maps nothing, or there are too many", piece);
            return false;
        }
        list += length + (list[length] == ',' ? 1 : 0);
    }
    return true;
}

bool can_be_reached(in_addr address)
{
    if (state.real_network || ntohl(address.s_addr) >> 24 == IN_LOOPBACKNET)
        return true;
    for (size_t index = 0; index < state.host_count; index++)
        if (state.hosts[index].address.s_addr == address.s_addr)
            return true;
    return false;
}

// What `name` is known as without asking anybody.
bool look_up(const char *name, in_addr *address)
{
    for (size_t index = 0; index < state.host_count; index++) {
        if (strcasecmp(state.hosts[index].name, name) == 0) {
            *address = state.hosts[index].address;
            return true;
        }
    }
    if (strcasecmp(name, "localhost") == 0)
        name = "127.0.0.1";
    return inet_aton(name, address) != 0;
}

} // namespace

int network_start(const char *ports, const char *hosts, bool real_network, char *error,
                  size_t error_size)
{
    state = {};
    state.real_network = real_network;
    if (!each_piece(ports, take_port, error, error_size) ||
        !each_piece(hosts, take_host, error, error_size))
        return -1;
    return 0;
}

bool is_ipv4(const sockaddr *address, socklen_t size)
{
    return address != nullptr && size >= sizeof(sockaddr_in) && address->sa_family == AF_INET;
}

bool find_address(bool udp, sockaddr_in *address)
{
    for (size_t index = 0; index < state.port_count; index++) {
        if (state.ports[index].udp != udp || state.ports[index].device != address->sin_port)
            continue;
        address->sin_port = state.ports[index].actual;
        if (!can_be_reached(address->sin_addr))
            address->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return true;
    }
    return can_be_reached(address->sin_addr);
}

in_port_t device_port(bool udp, in_port_t actual)
{
    for (size_t index = 0; index < state.port_count; index++)
        if (state.ports[index].udp == udp && state.ports[index].actual == actual)
            return state.ports[index].device;
    return actual;
}

hostent *sim_gethostbyname(const char *name)
{
    static in_addr address;
    static char *addresses[] = {reinterpret_cast<char *>(&address), nullptr};
    static char *aliases[] = {nullptr};
    static char text[INET_ADDRSTRLEN];
    static hostent host = {text, aliases, AF_INET, sizeof address, addresses};
    if (!clock_runs())
        return real.gethostbyname(name);
    if (look_up(name, &address)) {
        inet_ntop(AF_INET, &address, text, sizeof text);
        return &host;
    }
    sim_operation operation = make_operation(op_resolve, name);
    hostent *found = state.real_network ? real.gethostbyname(name) : nullptr;
    operation.result = found == nullptr ? -1 : 0;
    log_operation(&operation);
    if (!state.real_network)
        h_errno = HOST_NOT_FOUND;
    return found;
}
