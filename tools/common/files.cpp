// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/common/files.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

descriptor::~descriptor()
{
    close();
}

void descriptor::close()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
}

std::string read_whole_file(const std::filesystem::path &path, size_t limit)
{
    const descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string content;
    std::array<char, 65536> piece;
    for (;;) { // until the end or a failure, that of a file that could not be opened too
        const ssize_t size = file.get() < 0 ? -1 : read(file.get(), piece.data(), piece.size());
        if (size < 0 && errno != EINTR)
            throw file_error(path.string() + ": cannot be read: " + strerror(errno));
        if (size == 0)
            return content;
        if (size > 0)
            content.append(piece.data(), static_cast<size_t>(size));
        if (content.size() > limit)
            throw file_error(path.string() + ": more than the " + std::to_string(limit) +
                             " bytes that can be used");
    }
}
