// SPDX-License-Identifier: GPL-2.0-or-later
//
// Serves packages from memory over HTTP or HTTPS, to this machine only, from threads of its own.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>

namespace simdev {

/// Path ("/flash.pkg") -> what is served there; outlives the server.
using served_files = std::map<std::string, std::span<const uint8_t>>;

class package_server {
public:
    /// Listens on a port that is free and answers `connections` at a time. With `https` a key and a
    /// certificate are made for the object's life. Throws failure.
    package_server(const served_files &files, bool https, int connections);
    ~package_server();
    package_server(const package_server &) = delete;
    package_server &operator=(const package_server &) = delete;

    int port = 0;          ///< of the loopback
    std::string authority; ///< the certificate, in the form of a CA file; empty without https

private:
    struct running;
    std::unique_ptr<running> running_;
};

} // namespace simdev
