// SPDX-License-Identifier: GPL-2.0-or-later
//
// Open files and whole files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

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

/// One line for the user: the path, and why it cannot be read.
struct file_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// The content of what can be opened at `path`, a pipe too, up to its end. Throws file_error, also
/// where there are more than `limit` bytes.
std::string read_whole_file(const std::filesystem::path &path, size_t limit = SIZE_MAX);
