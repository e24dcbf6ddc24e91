// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/image/reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <vector>

#include "tools/common/files.h"

namespace image {

namespace {

[[noreturn]] void fail(const std::filesystem::path &path, const char *reason)
{
    throw failure(path.string() + ": cannot be read: " + reason);
}

} // namespace

reader file_reader(const std::filesystem::path &path)
{
    const auto file = std::make_shared<descriptor>(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file->get() < 0)
        fail(path, strerror(errno));
    const off_t size = lseek(file->get(), 0, SEEK_END); // a block device has no size in its inode
    if (size < 0)
        fail(path, strerror(errno));
    const auto read = [file, path](uint64_t offset, std::span<uint8_t> into) {
        while (!into.empty()) {
            const ssize_t count =
                pread(file->get(), into.data(), into.size(), static_cast<off_t>(offset));
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                fail(path, count < 0 ? strerror(errno) : "it has become shorter");
            into = into.subspan(static_cast<size_t>(count));
            offset += static_cast<uint64_t>(count);
        }
    };
    // A folder can be opened and has a "size".
    uint8_t first = 0;
    if (size > 0)
        read(0, {&first, 1});
    return {static_cast<uint64_t>(size), read};
}

reader memory_reader(std::span<const uint8_t> content)
{
    return {content.size(), [content](uint64_t offset, std::span<uint8_t> into) {
                std::copy_n(content.begin() + static_cast<std::ptrdiff_t>(offset), into.size(),
                            into.begin());
            }};
}

void each_piece(const reader &partition, uint64_t size,
                const std::function<bool(uint64_t offset, std::span<const uint8_t>)> &take)
{
    constexpr uint64_t piece_size = 65536;
    std::vector<uint8_t> buffer(std::min(size, piece_size));
    for (uint64_t offset = 0; offset < size; offset += piece_size) {
        const std::span<uint8_t> piece(buffer.data(), std::min(piece_size, size - offset));
        partition.read(offset, piece);
        if (!take(offset, piece))
            return;
    }
}

} // namespace image
