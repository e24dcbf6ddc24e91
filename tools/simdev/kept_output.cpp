// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/kept_output.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/common/files.h"

namespace simdev {

int64_t kept_output::size() const
{
    struct stat status;
    return fstat(fd_, &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : 0;
}

void kept_output::free_middle()
{
    const int64_t end = size() - kept_bytes;
    if (end >= freed_to_ + 4 * kept_bytes &&
        fallocate(fd_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, freed_to_, end - freed_to_) == 0)
        freed_to_ = end;
}

void kept_output::finish()
{
    if (freed_to_ == kept_bytes)
        return;
    const int64_t left_out = size() - 2 * kept_bytes;
    std::string end(kept_bytes, '\0');
    const descriptor reading(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    const ssize_t got = pread(reading.get(), end.data(), end.size(), kept_bytes + left_out);
    end.resize(got > 0 ? static_cast<size_t>(got) : 0);
    end.insert(0, "\n(simdev left out " + std::to_string(left_out) + " bytes here)\n");
    if (ftruncate(fd_, kept_bytes) != 0 || pwrite(fd_, end.data(), end.size(), kept_bytes) < 0)
        throw failure(path_.string() + ": " + strerror(errno));
}

} // namespace simdev
