// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/web.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>
#include <thread>

#include <sched.h>

#include "tools/follow/page.h"
#include "tools/follow/web_peer.h"

namespace follow {

struct web_server {
    peer_server server;
    std::mutex lock;
    std::string state; ///< under the lock
    std::thread thread;
};

namespace {

constexpr size_t threads = 4;
constexpr size_t request_limit = 1024; // bytes of a body; none is wanted

const httplib::Headers headers = {
    {"Cache-Control", "no-store"},
    {"Content-Security-Policy", std::string(page_policy) + "; frame-ancestors 'none'"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Referrer-Policy", "no-referrer"},
    {"X-Content-Type-Options", "nosniff"},
};

// Without the library's SO_REUSEPORT: a port that is taken is an error.
void set_socket_options(socket_t socket)
{
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

void add_paths(web_server *web, std::string_view page)
{
    const auto send_page = [page](const httplib::Request &, httplib::Response &response) {
        response.set_content(page.data(), page.size(), "text/html; charset=utf-8");
    };
    web->server.Get("/", send_page);
    web->server.Get("/follow\\.html", send_page);
    web->server.Get("/state\\.json", [web](const httplib::Request &, httplib::Response &response) {
        const std::lock_guard guard(web->lock);
        response.set_content(web->state, "application/json");
    });
}

} // namespace

web_server *web_start(const char *address, int *port, std::string_view page, char *error,
                      size_t error_size)
try {
    auto web = std::make_unique<web_server>();
    web->server.set_default_headers(headers);
    web->server.set_socket_options(set_socket_options);
    web->server.set_payload_max_length(request_limit);
    web->server.new_task_queue = [] { return new httplib::ThreadPool(threads); };
    add_paths(web.get(), page);
    errno = 0;
    const bool bound = *port == 0 ? (*port = web->server.bind_to_any_port(address)) > 0
                                  : web->server.bind_to_port(address, *port);
    if (!bound) {
        snprintf(error, error_size, "%s, port %d: %s", address, *port,
                 errno == 0 ? "no such address" : strerror(errno));
        return nullptr;
    }
    web->thread = std::thread([server = &web->server] {
        // Descriptors of their own for the threads: however many peers connect, the program can
        // still open its state file, and a command that it starts inherits no connection.
        unshare(CLONE_FILES);
        server->listen_after_bind();
    });
    return web.release();
} catch (const std::exception &failure) {
    snprintf(error, error_size, "web server: %s", failure.what());
    return nullptr;
}

void web_publish(web_server *server, std::string_view state)
{
    if (server == nullptr)
        return;
    const std::lock_guard guard(server->lock);
    server->state.assign(state);
}

void web_stop(web_server *server)
{
    if (server == nullptr)
        return;
    server->server.stop();
    server->thread.join();
    delete server;
}

} // namespace follow
