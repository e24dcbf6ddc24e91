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
} network_state;

bool take_port(const char *text)
{
    if (network_state.port_count == network_state.ports.size())
        return false;
    char *end = nullptr;
    const auto device = static_cast<in_port_t>(strtoul(text + strlen("udp:"), &end, 10));
    const auto actual = static_cast<in_port_t>(strtoul(end + strlen("="), nullptr, 10));
    network_state.ports[network_state.port_count++] = {text[0] == 'u', htons(device),
                                                       htons(actual)};
    return true;
}

bool take_host(const char *text)
{
    const size_t length = strcspn(text, "=");
    host_pair pair = {};
    if (network_state.host_count == network_state.hosts.size() || length >= sizeof pair.name)
        return false;
    memcpy(pair.name, text, length);
    inet_pton(AF_INET, text + length + strlen("="), &pair.address);
    network_state.hosts[network_state.host_count++] = pair;
    return true;
}

// Calls `take` for each piece of `list`, which ends in a comma; false with a line in `error` as
// soon as it gives false.
bool each_piece(const char *list, bool (*take)(const char *), char *error, size_t error_size)
{
    for (size_t length = 0; *list != '\0'; list += length + 1) {
        char piece[256] = "";
        length = strcspn(list, ",");
        if (length < sizeof piece)
            memcpy(piece, list, length);
        if (length >= sizeof piece || !take(piece)) {
            snprintf(error, error_size, "\"%s\" maps nothing, or there are too many", piece);
            return false;
        }
    }
    return true;
}

bool can_be_reached(in_addr address)
{
    if (network_state.real_network || ntohl(address.s_addr) >> 24 == IN_LOOPBACKNET)
        return true;
    for (size_t index = 0; index < network_state.host_count; index++)
        if (network_state.hosts[index].address.s_addr == address.s_addr)
            return true;
    return false;
}

// What `name` is known as without asking anybody.
bool look_up(const char *name, in_addr *address)
{
    for (size_t index = 0; index < network_state.host_count; index++) {
        if (strcasecmp(network_state.hosts[index].name, name) == 0) {
            *address = network_state.hosts[index].address;
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
    network_state = {};
    network_state.real_network = real_network;
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
    for (size_t index = 0; index < network_state.port_count; index++) {
        if (network_state.ports[index].udp != udp ||
            network_state.ports[index].device != address->sin_port)
            continue;
        address->sin_port = network_state.ports[index].actual;
        if (!can_be_reached(address->sin_addr))
            address->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return true;
    }
    return can_be_reached(address->sin_addr);
}

in_port_t device_port(bool udp, in_port_t actual)
{
    for (size_t index = 0; index < network_state.port_count; index++)
        if (network_state.ports[index].udp == udp && network_state.ports[index].actual == actual)
            return network_state.ports[index].device;
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
        // cppcheck-suppress CastIntegerToAddressAtReturn; it is a pointer
        return real.gethostbyname(name);
    if (look_up(name, &address)) {
        inet_ntop(AF_INET, &address, text, sizeof text);
        return &host;
    }
    sim_operation operation = make_operation(op_resolve, name);
    hostent *found = network_state.real_network ? real.gethostbyname(name) : nullptr;
    operation.result = found == nullptr ? -1 : 0;
    log_operation(&operation);
    if (!network_state.real_network)
        h_errno = HOST_NOT_FOUND;
    return found;
}
