// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/web.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <mutex>
#include <poll.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include <httplib.h>

namespace follow {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds look_up_every{100}; // for the server's end

constexpr size_t peer_request_bytes = 64 * 1024; // head and body; cookies of other ports come too
constexpr int peer_patience_ms = 5000;           // for a whole request, and for the next one
constexpr size_t peer_requests = 1000;           // a connection

// What one peer can take of the server has an end here. The library reads a line until its newline
// comes, however much memory that takes, and waits anew for every byte: a peer that sends neither
// would fill the memory of the device during its upgrade, or keep the program from ending.
class peer_stream : public httplib::Stream {
public:
    peer_stream(socket_t socket, const std::atomic<socket_t> *server)
        : socket_(socket), server_(server)
    {
    }

    void begin_request()
    {
        left_ = peer_request_bytes;
        end_ = steady_clock::now() + milliseconds(peer_patience_ms);
    }

    // True when the request was longer than it may be: what follows is the rest of it.
    [[nodiscard]] bool spent() const
    {
        return left_ == 0;
    }

    [[nodiscard]] bool is_readable() const override
    {
        return begin_ < filled_ || ready(POLLIN);
    }

    [[nodiscard]] bool is_writable() const override
    {
        return ready(POLLOUT);
    }

    ssize_t read(char *data, size_t size) override
    {
        if (begin_ == filled_) {
            if (!ready(POLLIN))
                return -1;
            const ssize_t result =
                recv(socket_, buffer_.data(), std::min(buffer_.size(), left_), MSG_DONTWAIT);
            if (result <= 0) // the limit, too
                return result;
            begin_ = 0;
            filled_ = static_cast<size_t>(result);
            left_ -= filled_;
        }
        const size_t count = std::min(size, filled_ - begin_);
        memcpy(data, buffer_.data() + begin_, count);
        begin_ += count;
        return static_cast<ssize_t>(count);
    }

    ssize_t write(const char *data, size_t size) override
    {
        return ready(POLLOUT) ? send(socket_, data, size, MSG_NOSIGNAL | MSG_DONTWAIT) : -1;
    }

    // For a request's record, which nobody reads.
    void get_remote_ip_and_port(std::string & /*ip*/, int & /*port*/) const override {}
    void get_local_ip_and_port(std::string & /*ip*/, int & /*port*/) const override {}

    [[nodiscard]] socket_t socket() const override
    {
        return socket_;
    }

private:
    // Until the request's time is over. Of a server that ends nothing more is read.
    [[nodiscard]] bool ready(short what) const
    {
        while (what == POLLOUT || *server_ != INVALID_SOCKET) {
            const auto rest = std::chrono::ceil<milliseconds>(end_ - steady_clock::now());
            if (rest <= milliseconds::zero())
                return false;
            pollfd wanted = {socket_, what, 0};
            const int result =
                poll(&wanted, 1, static_cast<int>(std::min(rest, look_up_every).count()));
            if (result > 0 || (result < 0 && errno != EINTR))
                return result > 0;
        }
        return false;
    }

    socket_t socket_;
    const std::atomic<socket_t> *server_;
    steady_clock::time_point end_;
    size_t left_ = peer_request_bytes;
    std::array<char, 4096> buffer_ = {};
    size_t begin_ = 0;
    size_t filled_ = 0;
};

// Answers the requests of one connection, and closes it: when the peer does, when a limit is met,
// or within 0.1 s of stop().
class peer_server : public httplib::Server {
private:
    bool process_and_close_socket(socket_t socket) override
    {
        peer_stream stream(socket, &svr_sock_);
        bool good = true;
        bool over = false;
        for (size_t left = peer_requests; left > 0 && good && !over && !stream.spent(); left--) {
            stream.begin_request(); // its wait is one of its own
            if (!stream.is_readable())
                break;
            stream.begin_request();
            good = process_request(stream, left == 1, over, nullptr);
        }
        shutdown(socket, SHUT_RDWR);
        close(socket);
        return good;
    }
};

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

} // namespace

struct web_server {
    peer_server server;
    std::mutex lock;
    std::string state; ///< under the lock
    std::thread thread;
};

web_server *web_start(const char *address, int port, std::string_view state)
try {
    auto web = std::make_unique<web_server>();
    web->server.set_default_headers(headers);
    web->server.set_socket_options(set_socket_options);
    web->server.set_payload_max_length(request_limit);
    web->server.new_task_queue = [] { return new httplib::ThreadPool(threads); };
    web->state = state;
    const auto send_page = [](const httplib::Request &, httplib::Response &response) {
        response.set_content(page_text.data(), page_text.size(), "text/html; charset=utf-8");
    };
    const auto send_state = [web = web.get()](const httplib::Request &,
                                              httplib::Response &response) {
        const std::lock_guard guard(web->lock);
        response.set_content(web->state, "application/json");
    };
    web->server.Get("/", send_page);
    web->server.Get("/follow\\.html", send_page);
    web->server.Get("/state\\.json", send_state);
    errno = 0;
    const bool bound = port == 0 ? (port = web->server.bind_to_any_port(address)) > 0
                                 : web->server.bind_to_port(address, port);
    if (!bound) {
        fprintf(stderr, "upgrade-follow: %s, port %d: %s\n", address, port,
                errno == 0 ? "no such address" : strerror(errno));
        return nullptr;
    }
    web->thread = std::thread([server = &web->server] {
        // Descriptors of their own for the threads: however many peers connect, the program can
        // still open its state file, and a command that it starts inherits no connection.
        unshare(CLONE_FILES);
        server->listen_after_bind();
    });
    const bool brackets = strchr(address, ':') != nullptr;
    fprintf(stderr, brackets ? "The page: http://[%s]:%d/\n" : "The page: http://%s:%d/\n", address,
            port);
    return web.release();
} catch (const std::exception &failure) {
    fprintf(stderr, "upgrade-follow: web server: %s\n", failure.what());
    return nullptr;
}

void web_publish(web_server *web, std::string_view state)
{
    if (web == nullptr)
        return;
    const std::lock_guard guard(web->lock);
    web->state.assign(state);
}

void web_stop(web_server *web)
{
    if (web == nullptr)
        return;
    web->server.stop();
    web->thread.join();
    delete web;
}

} // namespace follow
