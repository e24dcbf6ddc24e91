// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/http-priv.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <netdb.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include "httpc/extra_connect.h"
#include "httpc/sslcli.h"
#include "platform/number.h"
#include "platform/text.h"

namespace {

constexpr diagnostic_unit unit = diagnostic_http_priv;
constexpr char loopback_host[] = "127.0.0.1";
constexpr int ready_wait_seconds = 2;
constexpr int linger_seconds = 5;

/// A wait that failed; this line alone has no colon behind its number.
void wait_error(diagnostic_place place)
{
    const int error = errno;
    fprintf(stderr, "%s:%s:%d %s \n", diagnostic_unit_name(place.unit), place.function,
            place.number, strerror(error));
    errno = error;
}

bool fits_a_set(int socket)
{
    return socket >= 0 && socket < FD_SETSIZE;
}

/// `select` on one socket, in the sets that are not null. -1 for a socket that no set can hold.
int wait_ready(int socket, fd_set *readable, fd_set *writable, fd_set *exceptional, int seconds)
{
    if (!fits_a_set(socket)) {
        errno = EBADF;
        return -1;
    }
    for (fd_set *set : {readable, writable, exceptional}) {
        if (set == nullptr)
            continue;
        FD_ZERO(set);
        FD_SET(socket, set);
    }
    timeval wait = {.tv_sec = seconds, .tv_usec = 0};
    return select(socket + 1, readable, writable, exceptional, &wait);
}

/// Sets the linger time and connects; whether that worked.
bool linger_and_connect(int socket, const sockaddr *address, socklen_t address_length,
                        int timeout_seconds)
{
    const linger option = {.l_onoff = 1, .l_linger = linger_seconds};
    if (setsockopt(socket, SOL_SOCKET, SO_LINGER, &option, sizeof(option)) < 0)
        return false;
    if (timeout_seconds < 1)
        return connect(socket, address, address_length) >= 0;
    return timed_connect(socket, address, address_length, timeout_seconds) >= 1;
}

/// Asks the socket for its pending error, as `_http_net_write` does before each write. Whether the
/// write may go on.
bool pending_error_allows_write(int socket, int ready, diagnostic_place place)
{
    // Kept: the length handed over is 0, so the query clears the socket's error but stores nothing,
    // and the value compared is still the count of ready sets.
    int value = ready;
    socklen_t length = 0;
    if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &value, &length) < 0 || value == EPIPE) {
        diagnose_recv(place);
        return false;
    }
    return true;
}

} // namespace

int _http_parse_url(const char *url, char *scheme, char *host, uint16_t *port, char *path)
{
    char rest[httpc_host_size] = {};
    if (url == nullptr || strlen(url) >= sizeof(rest)) {
        diagnose_recv(diagnostic_here(unit));
        return -1;
    }
    *port = 80;
    if (url[0] == '/') {
        safe_strncpy(host, loopback_host, httpc_host_size);
        safe_strncpy(path, url, httpc_host_size);
        return 0;
    }
    if (strncmp(url, "http://", 7) == 0) {
        memcpy(scheme, "HTTP", sizeof("HTTP"));
        url += 7;
    } else if (strncmp(url, "https://", 8) == 0) {
        memcpy(scheme, "HTTPS", sizeof("HTTPS"));
        url += 8;
        *port = 443;
    }
    safe_strncpy(rest, url, sizeof(rest));
    // Kept: the first ":" anywhere cuts, one inside the path too ("host/x:y" is the host "host/x").
    if (char *colon = strchr(rest, ':'); colon != nullptr) {
        *colon = '\0';
        safe_strncpy(host, rest, httpc_host_size);
        *port = static_cast<uint16_t>(number_from_text(colon + 1, 10, nullptr));
        // Kept: a port without a path yields no path.
        if (const char *slash = strchr(colon + 1, '/'); slash != nullptr)
            safe_strncpy(path, slash, httpc_host_size);
        return 0;
    }
    char *slash = strchr(rest, '/');
    safe_strncpy(path, slash == nullptr ? "/" : slash, httpc_host_size);
    if (slash != nullptr)
        *slash = '\0';
    safe_strncpy(host, rest, httpc_host_size);
    return 0;
}

int _tcp_connect2(int socket, const sockaddr *address, socklen_t address_length,
                  int timeout_seconds)
{
    if (address->sa_family != AF_INET)
        return -1;
    const bool created = socket < 1; // kept: 0 counts as no socket
    if (created) {
        socket = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        if (socket < 0) {
            diagnose_recv(diagnostic_here(unit));
            return -1;
        }
    }
    if (linger_and_connect(socket, address, address_length, timeout_seconds))
        return socket;
    diagnose_recv(diagnostic_here(unit));
    if (created) {
        diagnose_recv(diagnostic_here(unit));
        close(socket);
    }
    return -1;
}

int _http_net_connect(const char *host, uint16_t port, const char *request_host,
                      uint16_t request_port, int timeout_seconds)
{
    // Kept: a redirect to 127.0.0.1 means the server that the client was opened for.
    const bool to_request = strcmp(request_host, loopback_host) != 0;
    const hostent *entry = gethostbyname(to_request ? request_host : host);
    if (entry == nullptr) {
        diagnose_recv(diagnostic_here(unit));
        return -1;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(to_request ? request_port : port);
    memcpy(&address.sin_addr, entry->h_addr_list[0], sizeof(address.sin_addr));
    const int socket = _tcp_connect2(-1, reinterpret_cast<const sockaddr *>(&address),
                                     sizeof(address), timeout_seconds);
    if (socket >= 0)
        return socket;
    if (to_request)
        diagnose_recv(diagnostic_here(unit));
    sleep(1); // a server that restarts gets a moment: the request is sent six times in a row
    // Kept: it closes nothing, and makes the caller's diagnostic say "Bad file descriptor".
    close(socket);
    return -1;
}

bool _http_wait_readable(int socket, int seconds, diagnostic_place place)
{
    fd_set readable;
    const int ready = wait_ready(socket, &readable, nullptr, nullptr, seconds);
    if (ready < 0) // kept: no return; the system leaves the set as it was
        wait_error(place);
    return ready != 0 && fits_a_set(socket) && FD_ISSET(socket, &readable);
}

int _http_net_read(httpc_client *client, void *buffer, int length)
{
    if (!_http_wait_readable(client->socket, ready_wait_seconds, diagnostic_here(unit)))
        return 0;
    const ssize_t result = client->tls != nullptr
                               ? client->tls->ops->read(client->tls, buffer, length)
                               : read(client->socket, buffer, static_cast<size_t>(length));
    return result < 0 ? -1 : static_cast<int>(result);
}

int _http_net_write(httpc_client *client, const char *buffer, int length)
{
    fd_set writable;
    fd_set exceptional;
    const int ready =
        wait_ready(client->socket, nullptr, &writable, &exceptional, ready_wait_seconds);
    if (ready < 0) {
        wait_error(diagnostic_here(unit));
        return -1;
    }
    if (ready == 0) {
        client->unready_writes++;
        return 0;
    }
    if (FD_ISSET(client->socket, &exceptional)) {
        diagnose_recv(diagnostic_here(unit));
        if (!pending_error_allows_write(client->socket, ready, diagnostic_here(unit)))
            return -1;
    }
    if (!pending_error_allows_write(client->socket, ready, diagnostic_here(unit)))
        return -1;
    if (!FD_ISSET(client->socket, &writable)) {
        client->unready_writes++;
        return 0;
    }
    client->unready_writes = 0;
    ssize_t result = 0; // a short write is the caller's success: no loop
    if (client->tls != nullptr) {
        fprintf(stderr, "write buf: %s len: %d\n", buffer, length);
        result = client->tls->ops->write(client->tls, buffer, length);
    } else {
        result = write(client->socket, buffer, static_cast<size_t>(length));
    }
    if (result < 0) {
        diagnose_recv(diagnostic_here(unit));
        return -1;
    }
    return static_cast<int>(result);
}
