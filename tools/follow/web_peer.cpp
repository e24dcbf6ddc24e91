// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/follow/web_peer.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace follow {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds look_up_every{100}; // for the server's end

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

} // namespace

bool peer_server::process_and_close_socket(socket_t socket)
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

} // namespace follow
