// SPDX-License-Identifier: GPL-2.0-or-later
//
// Open files and whole files. Every failure is thrown as one line that begins with the path.
//
// The path "-" stands for the standard streams, as it does for most commands; a file of that name
// is reached as "./-".
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/common/failure.h"

/// A file descriptor, or -1; closed with the object.
class descriptor {
public:
    explicit descriptor(int fd) : fd_(fd) {}
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    ~descriptor();

    void close();
    [[nodiscard]] int get() const
    {
        return fd_;
    }

private:
    int fd_;
};

/// True for "-".
bool is_standard_stream(const std::filesystem::path &path);

/// The content of what can be opened at `path`, a pipe too, up to its end; of standard input for
/// "-". Throws failure, with exit_trouble where it cannot be read, and with `too_large` as soon as
/// it is known to have more than `limit` bytes.
std::vector<uint8_t> read_bytes(const std::filesystem::path &path, size_t limit,
                                int too_large = exit_trouble);
std::string read_text(const std::filesystem::path &path, size_t limit = SIZE_MAX);

/// Puts `bytes` at `path`, all or nothing: a temporary file in the same folder is written, flushed
/// to the disk and renamed. On failure (thrown) the old file is as it was and the temporary one is
/// gone. A link is followed, also one to nothing; anything but a regular file is refused. For "-"
/// the bytes go to standard output, behind what was printed before.
void write_file(const std::filesystem::path &path, std::span<const uint8_t> bytes);
void write_file(const std::filesystem::path &path, std::string_view text);
