// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/receiver_links.h"

#include <cstdio>
#include <fcntl.h>
#include <iterator>
#include <sys/socket.h>
#include <sys/un.h>

#include "platform/device.h"
#include "tools/common/files.h"
#include "tools/simdev/folder.h"

namespace simdev {

namespace fs = std::filesystem;

namespace {

/// The address of a socket through a descriptor of its folder: an address has room for 107
/// characters only, a path for more.
class socket_address {
public:
    explicit socket_address(const fs::path &path)
        : folder_(open(path.parent_path().c_str(), O_PATH | O_CLOEXEC))
    {
        address_.sun_family = AF_UNIX;
        const int size = snprintf(address_.sun_path, sizeof address_.sun_path,
                                  "/proc/self/fd/%d/%s", folder_.get(), path.filename().c_str());
        if (size >= static_cast<int>(sizeof address_.sun_path))
            throw failure(path.string() + ": too long a name for a socket");
    }
    /// Whether somebody has bound a datagram socket there.
    [[nodiscard]] bool has_listener() const
    {
        const descriptor probe(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        return connect(probe.get(), reinterpret_cast<const sockaddr *>(&address_),
                       sizeof address_) == 0;
    }

private:
    descriptor folder_;
    sockaddr_un address_ = {};
};

} // namespace

receiver_links::receiver_links(const fs::path &folder, const std::map<int, fs::path> &wanted)
{
    for (size_t index = 0; index < std::size(status_receivers); index++) {
        const fs::path place = folder_path(folder, status_receivers[index]);
        const auto other = wanted.find(static_cast<int>(index) + 1);
        const bool linked = other != wanted.end();
        if (!linked && !fs::is_symlink(place) && socket_address(place).has_listener()) {
            foreign += static_cast<char>('1' + index);
            continue;
        }
        const fs::path target = linked ? fs::absolute(other->second) : "";
        if (linked && !socket_address(target).has_listener())
            throw failure("receiver " + std::to_string(index + 1) + ": nobody listens on " +
                          target.string());
        std::error_code error;
        fs::remove(place, error); // left by one that was killed
        if (!linked)
            continue;
        fs::create_symlink(target, place, error);
        if (error)
            throw failure(place.string() + ": " + error.message());
        links_.push_back(place);
        foreign += static_cast<char>('1' + index);
    }
}

receiver_links::~receiver_links()
{
    std::error_code ignored;
    for (const fs::path &link : links_)
        fs::remove(link, ignored);
}

} // namespace simdev
