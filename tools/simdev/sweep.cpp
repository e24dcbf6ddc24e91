// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/sweep.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <sys/mman.h>

#include "tools/common/files.h"
#include "tools/simdev/core/watchdog.h"
#include "tools/simdev/folder.h"
#include "tools/simdev/work.h"

namespace simdev {

namespace fs = std::filesystem;

namespace {

fs::path copy_device(const fs::path &from, const fs::path &to)
{
    std::error_code error;
    for (const char *empty : {"tmp", "run"})
        fs::create_directories(to / empty, error);
    for (const char *part : {"device.toml", "dev", "etc", "usr"})
        if (!error && fs::exists(from / part))
            fs::copy(from / part, to / part, fs::copy_options::recursive, error);
    if (error && fs::space(to).available == 0) // which the library calls an input/output error
        error = std::make_error_code(std::errc::no_space_on_device);
    if (error)
        throw failure(to.string() + ": the device cannot be copied there: " + error.message());
    return to;
}

/// A partition's file as memory: it is looked at and put back twice for every cut point, and is
/// mostly as it should be.
class mapped_partition {
public:
    explicit mapped_partition(const fs::path &path) : size_(fs::file_size(path))
    {
        const descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
        void *address = file.get() < 0 ? MAP_FAILED
                                       : mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED,
                                              file.get(), 0);
        if (address == MAP_FAILED)
            throw failure(path.string() + ": cannot be mapped: " + strerror(errno));
        data_ = static_cast<char *>(address);
    }
    mapped_partition(const mapped_partition &) = delete;
    mapped_partition &operator=(const mapped_partition &) = delete;
    ~mapped_partition()
    {
        munmap(data_, size_);
    }
    std::string_view content() const
    {
        return {data_, size_};
    }
    void restore(const std::string &content)
    {
        constexpr size_t step = 4096;
        for (size_t at = 0; at < size_; at += step) {
            const size_t count = std::min(step, size_ - at);
            if (memcmp(data_ + at, content.data() + at, count) != 0)
                memcpy(data_ + at, content.data() + at, count);
        }
    }

private:
    char *data_ = nullptr;
    size_t size_;
};

/// The files of those partitions in `folder` that an upgrade writes to.
std::map<int, fs::path> written_files(const fs::path &folder, const std::set<int> &written)
{
    std::map<int, fs::path> files = partition_files(folder);
    std::erase_if(files, [&written](const auto &file) { return !written.contains(file.first); });
    return files;
}

/// What the undisturbed run shows and all the others need to know.
struct reference {
    int64_t writes = 0;
    std::set<int> partitions;
    partition_contents before;
    partition_contents after;
};

reference run_undisturbed(const run_options &options)
{
    reference result;
    const run_outcome outcome = run_program(options, [&](const sim_operation &operation) {
        if (operation.op != op_write)
            return;
        result.writes++;
        result.partitions.insert(std::string_view(operation.target).back() - '0');
    });
    if (outcome.exit_status != 0 && !outcome.interrupted)
        throw failure("the undisturbed run ends with exit status " +
                      std::to_string(outcome.exit_status) +
                      ": there is nothing to sweep (look at it with simdev run)");
    result.after = read_partitions(written_files(options.folder, result.partitions));
    return result;
}

/// One run at a time in a copy of its own.
class worker {
public:
    worker(const run_options &options, const reference &undisturbed, const fs::path &folder,
           int64_t torn)
        : options_(options), reference_(undisturbed), torn_(torn)
    {
        options_.folder = copy_device(options.folder, folder);
        options_.quiet = true;
        for (const auto &[number, file] : written_files(options_.folder, undisturbed.partitions))
            partitions_.emplace(number, file);
    }

    cut_point try_cut(int64_t write)
    {
        for (auto &[number, partition] : partitions_)
            partition.restore(reference_.before.at(number));
        options_.faults = {"cut@" + std::to_string(write) +
                           (torn_ < 0 ? "" : ":torn=" + std::to_string(torn_))};
        const run_outcome cut = run_program(options_, {});
        if (cut.exit_status != sim_end_power_cut && !cut.interrupted)
            throw failure("the run that is cut after write " + std::to_string(write) +
                          " ends with exit status " + std::to_string(cut.exit_status));
        cut_point point;
        point.write = write;
        for (const auto &[number, partition] : partitions_)
            point.partitions[number] = judge(number, partition.content());
        options_.faults.clear();
        point.recovery_status = run_program(options_, {}).exit_status;
        point.recovered = point.recovery_status == 0;
        for (const auto &[number, partition] : partitions_)
            point.recovered = point.recovered && partition.content() == reference_.after.at(number);
        return point;
    }

private:
    partition_state judge(int number, std::string_view content) const
    {
        partition_state state;
        // Where an upgrade changes nothing, what is there counts as new.
        if (content == reference_.after.at(number))
            state.content = content_state::new_content;
        else if (content != reference_.before.at(number))
            state.content = content_state::mixed;
        state.trailer = judge_content(content);
        return state;
    }

    run_options options_;
    const reference &reference_;
    std::map<int, mapped_partition> partitions_;
    int64_t torn_;
};

} // namespace

sweep_result sweep(const run_options &options, int jobs, int64_t torn,
                   const std::function<void(int)> &done)
{
    const int64_t started_us = steady_us();
    const folder_lock lock(options.folder);
    read_folder(options.folder); // says what is wrong before anything is copied
    const scratch_folder scratch;
    run_options in_copies = options;
    in_copies.fast = true;
    in_copies.folder = copy_device(options.folder, scratch.path / "undisturbed");
    reference undisturbed = run_undisturbed(in_copies);
    undisturbed.before = read_partitions(written_files(options.folder, undisturbed.partitions));

    in_copies.folder = options.folder;
    std::vector<worker> workers; // all of them before the first thread: the disk may be full
    for (int64_t job = 0; job < std::min<int64_t>(jobs, undisturbed.writes); job++)
        workers.emplace_back(in_copies, undisturbed, scratch.path / ("copy" + std::to_string(job)),
                             torn);
    std::vector<cut_point> points(static_cast<size_t>(undisturbed.writes));
    std::mutex mutex;
    int64_t tried = 0;
    share_work(workers.size(), points.size(), [&](size_t thread, size_t index) {
        const cut_point point = workers[thread].try_cut(static_cast<int64_t>(index) + 1);
        const std::lock_guard<std::mutex> guard(mutex);
        if (is_interrupted())
            return; // the point's run was ended on the way
        points[index] = point;
        done(static_cast<int>(++tried * 100 / undisturbed.writes));
    });
    std::erase_if(points, [](const cut_point &point) { return point.write == 0; });
    return {points, undisturbed.writes, undisturbed.partitions, steady_us() - started_us,
            is_interrupted()};
}

} // namespace simdev
