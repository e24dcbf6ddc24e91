// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the device's addresses and names are on this machine. Unless the real network is asked for,
// nothing but this machine and the mapped hosts can be reached.
#pragma once

#include <cstddef>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

/// `ports` is a list as "udp:69=4069,tcp:21=2121,": the device's port = the real one; `hosts` one
/// as "name=127.0.0.1,10.0.0.7=127.0.0.1,": what the name or address is looked up as, which then
/// can be reached. Both are as simdev's command line has checked them. 0, or -1 with a line in
/// `error` for more pairs than there is room for.
int network_start(const char *ports, const char *hosts, bool real_network, char *error,
                  size_t error_size);

/// Whether there is an IPv4 address.
bool is_ipv4(const sockaddr *address, socklen_t size);

/// Makes the device's address the real one: the port as mapped, and then on this machine unless the
/// address can be reached. False for an address that nothing covers.
bool find_address(bool udp, sockaddr_in *address);

/// The device's port behind the real one, in network byte order as all ports here.
in_port_t device_port(bool udp, in_port_t actual);

/// Contract of gethostbyname: numbers, "localhost" and the mapped hosts are known, and the rest of
/// the world with the real network only.
hostent *sim_gethostbyname(const char *name);
