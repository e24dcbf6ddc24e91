// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the program says, in a file: of what goes on without end, as over a circle of redirects, the
// beginning and the end are kept.
#pragma once

#include <cstdint>
#include <filesystem>

namespace simdev {

class kept_output {
public:
    /// The file `path`, which the program writes to over a copy of `fd`; -1: it is left alone.
    kept_output(const std::filesystem::path &path, int fd) : path_(path), fd_(fd) {}

    /// While the program runs: gives the middle back to the disk where there is too much of it, and
    /// the file system can.
    void free_middle();

    /// The program has ended: puts the two ends together, and between them a line that says how
    /// many bytes are left out. Throws failure.
    void finish();

private:
    static constexpr int64_t kept_bytes = 1 << 20; // at the beginning as at the end

    [[nodiscard]] int64_t size() const;

    std::filesystem::path path_;
    int fd_;
    int64_t freed_to_ = kept_bytes;
};

} // namespace simdev
