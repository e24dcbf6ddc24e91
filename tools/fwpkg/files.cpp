// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/common/files.h"
#include "tools/fwpkg/failure.h"

namespace fwpkg {
namespace {

constexpr size_t key_limit = 64 * 1024;

[[noreturn]] void fail(const std::filesystem::path &path, const char *what, int error)
{
    throw failure(path.string() + ": " + what + ": " + strerror(error), exit_unreadable);
}

/// Removes the temporary file unless it was renamed.
struct temporary_file {
    std::string name;
    bool renamed = false;
    explicit temporary_file(std::string pattern) : name(std::move(pattern)) {}
    temporary_file(const temporary_file &) = delete;
    temporary_file &operator=(const temporary_file &) = delete;
    ~temporary_file()
    {
        if (!renamed)
            unlink(name.c_str());
    }
};

void write_all(int fd, std::span<const uint8_t> bytes, const std::filesystem::path &path)
{
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR)
            fail(path, "cannot write", errno);
        if (written > 0)
            bytes = bytes.subspan(static_cast<size_t>(written));
    }
}

/// Where a file of the name `path` would be made: links are followed, also one to nothing.
std::filesystem::path follow_links(const std::filesystem::path &path)
{
    constexpr int link_limit = 40; // the system's own
    std::filesystem::path target = path;
    for (int links = 0; links < link_limit; links++) {
        std::error_code error;
        const std::filesystem::path next = std::filesystem::read_symlink(target, error);
        if (error)
            return target; // no link
        target = target.parent_path() / next;
    }
    fail(path, "cannot create", ELOOP);
}

mode_t usual_mode()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

} // namespace

std::vector<uint8_t> read_file(const std::filesystem::path &path, size_t limit)
{
    const descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0)
        fail(path, "cannot open", errno);
    struct stat status;
    if (fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
        static_cast<uint64_t>(status.st_size) > limit)
        throw failure(path.string() + ": " + std::to_string(status.st_size) + " bytes, at most " +
                      std::to_string(limit) + " can be used");
    std::vector<uint8_t> bytes;
    std::vector<uint8_t> piece(64 * 1024);
    for (;;) { // until the end of the file or the limit
        const ssize_t got = read(file.get(), piece.data(), piece.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            fail(path, "cannot read", errno);
        if (got == 0)
            return bytes;
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + got);
        if (bytes.size() > limit)
            throw failure(path.string() + ": more than the " + std::to_string(limit) +
                          " bytes that can be used");
    }
}

std::string read_key_file(const std::filesystem::path &path)
{
    const std::vector<uint8_t> bytes = read_file(path, key_limit);
    std::string key(bytes.begin(), bytes.end());
    if (!key.empty() && key.back() == '\n')
        key.pop_back();
    const size_t nul = key.find('\0');
    if (nul != std::string::npos)
        throw failure(path.string() + ": byte " + std::to_string(nul) +
                      " is NUL, which a key cannot hold");
    return key;
}

void write_file(const std::filesystem::path &path, std::span<const uint8_t> bytes)
{
    std::error_code error;
    std::filesystem::path target = std::filesystem::canonical(path, error);
    if (error)
        target = follow_links(path);
    else if (!std::filesystem::is_regular_file(target, error))
        throw failure(path.string() + ": not a regular file", exit_unreadable);
    std::filesystem::path folder = target.parent_path();
    if (folder.empty())
        folder = ".";
    temporary_file temporary((folder / ("." + target.filename().string() + ".XXXXXX")).string());
    const descriptor file(mkostemp(temporary.name.data(), O_CLOEXEC));
    if (file.get() < 0) {
        temporary.renamed = true; // there is none
        fail(path, "cannot create", errno);
    }
    write_all(file.get(), bytes, path);
    if (fchmod(file.get(), usual_mode()) != 0 || fsync(file.get()) != 0)
        fail(path, "cannot write", errno);
    if (rename(temporary.name.c_str(), target.c_str()) != 0)
        fail(path, "cannot create", errno);
    temporary.renamed = true;
    // The new name lasts only once its folder is on the disk too; not every file system can say so.
    const descriptor parent(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (parent.get() >= 0)
        fsync(parent.get());
}

} // namespace fwpkg
