// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/common/files.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string shown_name(const std::filesystem::path &path, const char *stream)
{
    return is_standard_stream(path) ? stream : path.string();
}

[[noreturn]] void fail(const std::string &name, const char *what, int error)
{
    throw failure(name + ": " + what + ": " + strerror(error));
}

/// Appends the bytes of `fd` to `content` up to the end of the file, or to the first behind
/// `limit`.
void read_all(int fd, const std::string &name, size_t limit, std::vector<uint8_t> &content)
{
    std::array<uint8_t, 65536> piece;
    while (content.size() <= limit) {
        const ssize_t size = read(fd, piece.data(), piece.size());
        if (size < 0 && errno != EINTR)
            fail(name, "cannot be read", errno);
        if (size == 0)
            return;
        if (size > 0)
            content.insert(content.end(), piece.begin(), piece.begin() + size);
    }
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

void write_all(int fd, std::span<const uint8_t> bytes, const std::string &name)
{
    while (!bytes.empty()) {
        const ssize_t written = write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR)
            fail(name, "cannot be written", errno);
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
    fail(path.string(), "cannot be created", ELOOP);
}

mode_t usual_mode()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

/// The new name lasts only once its folder is on the disk too; not every file system can say so.
void flush_folder(const std::filesystem::path &folder)
{
    const descriptor parent(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (parent.get() >= 0)
        fsync(parent.get());
}

void write_output(std::span<const uint8_t> bytes)
{
    fflush(stdout); // a failure shows when the program ends
    write_all(STDOUT_FILENO, bytes, "standard output");
}

} // namespace

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

bool is_standard_stream(const std::filesystem::path &path)
{
    return path == "-";
}

std::vector<uint8_t> read_bytes(const std::filesystem::path &path, size_t limit, int too_large)
{
    const std::string name = shown_name(path, "standard input");
    const descriptor opened(is_standard_stream(path) ? -1
                                                     : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const int fd = is_standard_stream(path) ? STDIN_FILENO : opened.get();
    if (fd < 0)
        fail(name, "cannot be read", errno);
    std::vector<uint8_t> content;
    const std::string limit_text = std::to_string(limit) + " bytes that can be used";
    struct stat status;
    if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        if (static_cast<uint64_t>(status.st_size) > limit)
            throw failure(name + ": " + std::to_string(status.st_size) + " bytes, more than the " +
                              limit_text,
                          too_large);
        content.reserve(static_cast<size_t>(status.st_size));
    }
    read_all(fd, name, limit, content);
    if (content.size() > limit)
        throw failure(name + ": more than the " + limit_text, too_large);
    return content;
}

std::string read_text(const std::filesystem::path &path, size_t limit)
{
    const std::vector<uint8_t> content = read_bytes(path, limit);
    return {content.begin(), content.end()};
}

void write_file(const std::filesystem::path &path, std::span<const uint8_t> bytes)
{
    if (is_standard_stream(path))
        return write_output(bytes);
    std::error_code error;
    std::filesystem::path target = std::filesystem::canonical(path, error);
    if (error)
        target = follow_links(path);
    else if (!std::filesystem::is_regular_file(target, error))
        throw failure(path.string() + ": not a regular file");
    std::filesystem::path folder = target.parent_path();
    if (folder.empty())
        folder = ".";
    temporary_file temporary((folder / ("." + target.filename().string() + ".XXXXXX")).string());
    const descriptor file(mkostemp(temporary.name.data(), O_CLOEXEC));
    if (file.get() < 0) {
        temporary.renamed = true; // there is none
        fail(path.string(), "cannot be created", errno);
    }
    write_all(file.get(), bytes, path.string());
    if (fchmod(file.get(), usual_mode()) != 0 || fsync(file.get()) != 0)
        fail(path.string(), "cannot be written", errno);
    if (rename(temporary.name.c_str(), target.c_str()) != 0)
        fail(path.string(), "cannot be created", errno);
    temporary.renamed = true;
    flush_folder(folder);
}

void write_file(const std::filesystem::path &path, std::string_view text)
{
    write_file(path, {reinterpret_cast<const uint8_t *>(text.data()), text.size()});
}
