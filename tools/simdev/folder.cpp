// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/folder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

#include "platform/device.h"
#include "tools/simdev/work.h"

namespace simdev {

namespace fs = std::filesystem;

namespace {

constexpr char erased_byte = '\xFF';

void erase_partition(const fs::path &path, uint64_t size)
{
    const descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    const std::string piece(65536, erased_byte);
    for (uint64_t done = 0; done < size;) {
        const ssize_t count = file.get() < 0 ? -1
                                             : write(file.get(), piece.data(),
                                                     std::min<uint64_t>(piece.size(), size - done));
        if (is_interrupted())
            throw failure("interrupted: nothing was made", exit_interrupted);
        if (count < 0 && errno != EINTR)
            throw failure(path.string() + ": cannot be written: " + strerror(errno));
        done += count > 0 ? static_cast<uint64_t>(count) : 0;
    }
}

void fill_folder(const fs::path &folder, const device &described, const std::string &text)
{
    std::error_code error;
    for (const char *below : {"dev", "etc/rc.d/init.d", "usr/etc", "tmp", "run"}) {
        fs::create_directories(folder / below, error);
        if (error)
            throw failure((folder / below).string() + ": " + error.message());
    }
    write_file(folder_path(folder, gpio_device), std::string_view());
    for (const auto &[number, size] : described.partitions)
        erase_partition(folder_path(folder, partition_device(number).text), size);
    std::string configuration;
    for (const auto &[key, value] : described.configuration)
        configuration += key + "=" + value + "\n";
    write_file(folder / "etc/syscfg.conf", configuration);
    if (described.script.present) {
        const fs::path script = folder_path(folder, network_stop_script);
        write_file(script, "#!/bin/sh\nexit " + std::to_string(described.script.status) + "\n");
        fs::permissions(script, fs::perms::owner_exec, fs::perm_options::add);
    }
    // Last: a folder with a description is a complete one.
    write_file(folder / "device.toml", text);
}

} // namespace

fs::path folder_path(const fs::path &folder, const char *path)
{
    return folder / (path + 1);
}

void make_folder(const fs::path &folder, const device &described, const std::string &text)
{
    std::error_code error;
    if (folder.empty())
        throw failure("the folder's name is empty");
    const bool was_there = fs::exists(folder, error);
    if (was_there && (!fs::is_directory(folder, error) || !fs::is_empty(folder, error)))
        throw failure(folder.string() + ": is there already and not empty");
    try {
        fill_folder(folder, described, text);
    } catch (...) {
        std::vector<fs::path> made = {folder};
        if (was_there)
            made.assign(fs::directory_iterator(folder, error), fs::directory_iterator());
        for (const fs::path &path : made)
            fs::remove_all(path, error);
        throw;
    }
}

device read_folder(const fs::path &folder)
{
    if (!fs::exists(folder / "device.toml"))
        throw failure(folder.string() + ": is no device folder (make one with simdev init)");
    // The key came with the folder's configuration; its file need not be near any more.
    return read_device(folder / "device.toml", key_files::left);
}

std::map<int, fs::path> partition_files(const fs::path &folder)
{
    std::map<int, fs::path> files;
    for (int number = 0; number <= 9; number++) {
        const fs::path path = folder / "dev" / ("fla" + std::to_string(number));
        if (fs::exists(path))
            files[number] = path;
    }
    return files;
}

partition_contents read_partitions(const std::map<int, fs::path> &files)
{
    partition_contents contents;
    for (const auto &[number, file] : files)
        contents[number] = read_text(file);
    return contents;
}

image::trailer_state judge_content(std::string_view content)
{
    const auto *bytes = reinterpret_cast<const uint8_t *>(content.data());
    return judge_trailer(image::memory_reader({bytes, content.size()})).state;
}

folder_lock::folder_lock(const fs::path &folder)
    : folder_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (folder_.get() < 0)
        throw failure(folder.string() + ": is no device folder (make one with simdev init)");
    if (flock(folder_.get(), LOCK_EX | LOCK_NB) < 0)
        throw failure(folder.string() + ": another simdev is at work on it");
}

scratch_folder::scratch_folder()
{
    const char *place = getenv("TMPDIR");
    path = fs::path(place == nullptr || *place == '\0' ? "/tmp" : place) / "simdev-XXXXXX";
    std::string name = path.string();
    if (mkdtemp(name.data()) == nullptr)
        throw failure(path.string() + ": cannot be made: " + strerror(errno));
    path = name;
}

scratch_folder::~scratch_folder()
{
    std::error_code ignored; // nothing can be done about it here
    fs::remove_all(path, ignored);
}

} // namespace simdev
