// SPDX-License-Identifier: GPL-2.0-or-later
//
// The device's status receivers for the time of a run: somebody else's socket that is linked into
// the folder, what somebody has bound in the folder himself, or else nothing, and then the
// simulation receives.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace simdev {

class receiver_links {
public:
    /// `wanted` is 1 or 2 -> the socket of who is it. Throws failure where nobody listens there.
    receiver_links(const std::filesystem::path &folder,
                   const std::map<int, std::filesystem::path> &wanted);
    receiver_links(const receiver_links &) = delete;
    receiver_links &operator=(const receiver_links &) = delete;
    ~receiver_links();

    /// "1", "2", "12" or "": those that somebody else is.
    std::string foreign;

private:
    std::vector<std::filesystem::path> links_;
};

} // namespace simdev
