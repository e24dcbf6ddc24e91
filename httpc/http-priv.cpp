// SPDX-License-Identifier: GPL-2.0-or-later
#include "httpc/http-priv.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "httpc/sslcli.h"
#include "platform/number.h"

namespace {

constexpr char unit[] = "http-priv.c";
constexpr char loopback_host[] = "127.0.0.1";
constexpr int ready_wait_seconds = 2;
constexpr int linger_seconds = 5;

void recv_error(const char *function = __builtin_FUNCTION(), int line = __builtin_LINE())
{
    _http_recv_error(unit, function, line);
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

/// The result of a connect that is under way: that of the poll, or -1.
int poll_connect(int socket, int timeout_seconds, bool *restore_flags)
{
    pollfd entry = {.fd = socket, .events = POLLIN | POLLOUT, .revents = 0};
    const int milliseconds =
        static_cast<int>(std::min<int64_t>(int64_t{timeout_seconds} * 1000, INT32_MAX));
    int result = 0;
    do { // each turn is one signal
        result = poll(&entry, 1, milliseconds);
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        *restore_flags = false; // kept: only a poll that works leaves the flags restored
        return -1;
    }
    // A server that speaks first makes a new connection readable: kept as a failure, like POLLERR.
    return (entry.revents & (POLLIN | POLLERR)) != 0 ? -1 : result;
}

/// Connects within the time-out: above 0 when connected, 0 when the time has passed, -1 on failure.
int timed_connect(int socket, const sockaddr *address, socklen_t address_length,
                  int timeout_seconds)
{
    const int flags = fcntl(socket, F_GETFL);
    if (flags < 0)
        return -1;
    if ((flags & O_NONBLOCK) == 0 && fcntl(socket, F_SETFL, flags | O_NONBLOCK) < 0)
        return -1;
    // Kept: a connect that succeeds at once leaves 0, which the caller takes for a failure.
    int result = connect(socket, address, address_length);
    if (result < 0 && errno == EINPROGRESS) {
        bool restore_flags = true;
        result = poll_connect(socket, timeout_seconds, &restore_flags);
        if (!restore_flags)
            return result;
    }
    if ((flags & O_NONBLOCK) == 0)
        fcntl(socket, F_SETFL, flags);
    fprintf(stderr, "timed_connect(): %d\n", result);
    return result;
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
bool pending_error_allows_write(int socket, int ready, const char *function = __builtin_FUNCTION(),
                                int line = __builtin_LINE())
{
    // Kept: the length handed over is 0, so the query clears the socket's error but stores nothing,
    // and the value compared is still the count of ready sets.
    int value = ready;
    socklen_t length = 0;
    if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &value, &length) < 0 || value == EPIPE) {
        recv_error(function, line);
        return false;
    }
    return true;
}

int64_t encoded_length(const char *text)
{
    int64_t length = 0;
    for (; *text != '\0'; text++)
        length += *text == ' ' || _safe_char(*text) == 1 ? 1 : 3;
    return length;
}

} // namespace

void _http_recv_error(const char *source_unit, const char *function, int line)
{
    const int error = errno;
    fprintf(stderr, "%s:%s:line %d:recv error:%s\n", source_unit, function, line, strerror(error));
    errno = error;
}

void _http_wait_error(const char *source_unit, const char *function, int line)
{
    const int error = errno;
    fprintf(stderr, "%s:%s:%d %s \n", source_unit, function, line, strerror(error));
    errno = error;
}

void _http_copy(char *field, size_t size, const char *text)
{
    const size_t length = strnlen(text, size - 1);
    memset(field, 0, size);
    memcpy(field, text, length);
}

int _http_parse_url(const char *url, char *scheme, char *host, uint16_t *port, char *path)
{
    char rest[httpc_host_size] = {};
    if (url == nullptr || strlen(url) >= sizeof(rest)) {
        recv_error();
        return -1;
    }
    *port = 80;
    if (url[0] == '/') {
        _http_copy(host, httpc_host_size, loopback_host);
        _http_copy(path, httpc_host_size, url);
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
    _http_copy(rest, sizeof(rest), url);
    // Kept: the first ":" anywhere cuts, one inside the path too ("host/x:y" is the host "host/x").
    if (char *colon = strchr(rest, ':'); colon != nullptr) {
        *colon = '\0';
        _http_copy(host, httpc_host_size, rest);
        *port = static_cast<uint16_t>(number_from_text(colon + 1, 10, nullptr));
        // Kept: a port without a path yields no path.
        if (const char *slash = strchr(colon + 1, '/'); slash != nullptr)
            _http_copy(path, httpc_host_size, slash);
        return 0;
    }
    char *slash = strchr(rest, '/');
    _http_copy(path, httpc_host_size, slash == nullptr ? "/" : slash);
    if (slash != nullptr)
        *slash = '\0';
    _http_copy(host, httpc_host_size, rest);
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
            recv_error();
            return -1;
        }
    }
    if (linger_and_connect(socket, address, address_length, timeout_seconds))
        return socket;
    recv_error();
    if (created) {
        recv_error();
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
        recv_error();
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
        recv_error();
    sleep(1); // a server that restarts gets a moment: the request is sent six times in a row
    // Kept: it closes nothing, and makes the caller's diagnostic say "Bad file descriptor".
    close(socket);
    return -1;
}

bool _http_wait_readable(int socket, int seconds, const char *source_unit, const char *function,
                         int line)
{
    fd_set readable;
    const int ready = wait_ready(socket, &readable, nullptr, nullptr, seconds);
    if (ready < 0) // kept: no return; the system leaves the set as it was
        _http_wait_error(source_unit, function, line);
    return ready != 0 && fits_a_set(socket) && FD_ISSET(socket, &readable);
}

int _http_net_read(httpc_client *client, void *buffer, int length)
{
    if (!_http_wait_readable(client->socket, ready_wait_seconds, unit, __func__, __LINE__))
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
        _http_wait_error(unit, __func__, __LINE__);
        return -1;
    }
    if (ready == 0) {
        client->unready_writes++;
        return 0;
    }
    if (FD_ISSET(client->socket, &exceptional)) {
        recv_error();
        if (!pending_error_allows_write(client->socket, ready))
            return -1;
    }
    if (!pending_error_allows_write(client->socket, ready))
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
        recv_error();
        return -1;
    }
    return static_cast<int>(result);
}

int _safe_char(char byte)
{
    const bool safe = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                      (byte >= '0' && byte <= '9') || byte == '.' || byte == '_' || byte == '-';
    return safe ? 1 : 0;
}

int _encode_string(const char *source, char *destination, int size)
{
    constexpr char digits[] = "0123456789ABCDEF";
    const int64_t limit = size;
    int position = 0;
    for (; *source != '\0' && position < limit - 1; source++) {
        if (*source == ' ') {
            destination[position++] = '+';
        } else if (_safe_char(*source) == 1) {
            destination[position++] = *source;
        } else {
            if (position + 3 >= limit)
                return -1;
            const auto byte = static_cast<uint8_t>(*source);
            destination[position++] = '%';
            destination[position++] = digits[byte >> 4];
            destination[position++] = digits[byte & 15];
        }
    }
    return *source == '\0' ? position : -1;
}

int _encode_content(const char *name, const char *value, char *destination, int size)
{
    const int name_length = _encode_string(name, destination, size);
    if (name_length < 0)
        return -1;
    destination[name_length] = '=';
    // Kept: the value has the name's limit, not what is left of it.
    const int value_length = _encode_string(value, destination + name_length + 1, size);
    if (value_length < 0)
        return -1;
    return name_length + 1 + value_length;
}

int _encode_contents(const char *name, const char *value, char *buffer, int size)
{
    const auto length = static_cast<int>(strlen(buffer));
    const int start = length == 0 ? 0 : length + 1;
    // Judged beforehand, since the pair's own limits would let it run past the buffer.
    if (start + encoded_length(name) + 1 + encoded_length(value) >= size) {
        recv_error();
        return -1;
    }
    if (length != 0)
        buffer[length] = '&';
    return start + _encode_content(name, value, buffer + start, size - start);
}
