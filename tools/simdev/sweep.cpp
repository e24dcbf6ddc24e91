// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/sweep.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "tools/common/files.h"
#include "tools/simdev/core/watchdog.h"
#include "tools/simdev/folder.h"
#include "tools/simdev/interrupt.h"

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

using contents = std::map<int, std::string>;

/// A partition's file as memory: it is looked at and put back twice for every cut point, and is
/// mostly as it should be.
class mapped_partition {
public:
    explicit mapped_partition(const fs::path &path) : size_(fs::file_size(path))
    {
        const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        void *address =
            fd < 0 ? MAP_FAILED : mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (fd >= 0)
            close(fd);
        if (address == MAP_FAILED)
            throw failure(path.string() + ": cannot be mapped: " + strerror(errno));
        data_ = static_cast<char *>(address);
    }
    mapped_partition(mapped_partition &&other) noexcept
        : data_(std::exchange(other.data_, nullptr)), size_(other.size_)
    {
    }
    mapped_partition &operator=(mapped_partition &&) = delete;
    ~mapped_partition()
    {
        if (data_ != nullptr)
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

contents read_partitions(const fs::path &folder, const std::vector<int> &numbers)
{
    contents result;
    for (const int number : numbers)
        result[number] = read_text(folder / "dev" / ("fla" + std::to_string(number)));
    return result;
}

/// What the undisturbed run shows and all the others need to know.
struct reference {
    int64_t writes = 0;
    std::vector<int> partitions;
    contents before;
    contents after;
};

reference run_undisturbed(const run_options &options)
{
    reference result;
    std::set<int> written;
    const run_outcome outcome = run_program(options, [&](const sim_operation &operation) {
        if (operation.op != op_write)
            return;
        result.writes++;
        written.insert(std::string_view(operation.target).back() - '0');
    });
    if (outcome.exit_status != 0 && !outcome.interrupted)
        throw failure("the undisturbed run ends with exit status " +
                      std::to_string(outcome.exit_status) +
                      ": there is nothing to sweep (look at it with simdev run)");
    result.partitions.assign(written.begin(), written.end());
    result.after = read_partitions(options.folder, result.partitions);
    return result;
}

/// One run at a time in a copy of its own.
class worker {
public:
    worker(const run_options &options, const reference &reference, const fs::path &folder,
           int64_t torn)
        : options_(options), reference_(reference), torn_(torn)
    {
        options_.folder = copy_device(options.folder, folder);
        options_.quiet = true;
        for (const int number : reference.partitions)
            partitions_.emplace(number, options_.folder / "dev" / ("fla" + std::to_string(number)));
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
        state.trailer =
            judge_trailer(image::memory_reader(
                              {reinterpret_cast<const uint8_t *>(content.data()), content.size()}))
                .state;
        return state;
    }

    run_options options_;
    const reference &reference_;
    std::map<int, mapped_partition> partitions_;
    int64_t torn_;
};

/// Hands the cut points out to the workers and collects what they find.
class sweeper {
public:
    sweeper(int64_t writes, const std::function<void(int64_t, int64_t)> &done)
        : points_(static_cast<size_t>(writes)), done_(done)
    {
    }

    void work(worker &worker)
    {
        try {
            for (size_t index = next_++; index < points_.size() && !stopped(); index = next_++) {
                const cut_point point = worker.try_cut(static_cast<int64_t>(index) + 1);
                const std::lock_guard<std::mutex> lock(mutex_);
                if (stopped())
                    return; // the point's run was ended on the way
                points_[index] = point;
                done_(++tried_, static_cast<int64_t>(points_.size()));
            }
        } catch (const std::exception &error) {
            const std::lock_guard<std::mutex> lock(mutex_);
            error_ = error.what();
            failed_ = true;
        }
    }

    std::vector<cut_point> result()
    {
        if (failed_ && !is_interrupted())
            throw failure(error_);
        std::erase_if(points_, [](const cut_point &point) { return point.write == 0; });
        return points_;
    }

private:
    bool stopped() const
    {
        return failed_ || is_interrupted();
    }

    std::vector<cut_point> points_;
    const std::function<void(int64_t, int64_t)> &done_;
    std::atomic<size_t> next_ = 0;
    std::atomic<bool> failed_ = false;
    std::mutex mutex_;
    int64_t tried_ = 0;
    std::string error_;
};

} // namespace

sweep_result sweep(const run_options &options, int jobs, int64_t torn,
                   const std::function<void(int64_t, int64_t)> &done)
{
    const auto started = std::chrono::steady_clock::now();
    const folder_lock lock(options.folder);
    read_folder(options.folder); // says what is wrong before anything is copied
    const scratch_folder scratch;
    run_options undisturbed = options;
    undisturbed.fast = true;
    undisturbed.folder = copy_device(options.folder, scratch.path() / "undisturbed");
    reference reference = run_undisturbed(undisturbed);
    reference.before = read_partitions(options.folder, reference.partitions);

    run_options in_copies = undisturbed;
    in_copies.folder = options.folder;
    sweeper sweeper(reference.writes, done);
    std::vector<worker> workers; // all of them before the first thread: the disk may be full
    for (int64_t job = 0; job < std::min<int64_t>(jobs, reference.writes); job++)
        workers.emplace_back(in_copies, reference, scratch.path() / ("copy" + std::to_string(job)),
                             torn);
    {
        std::vector<std::jthread> threads; // joined, also where one of them cannot be started
        for (worker &worker : workers)
            threads.emplace_back([&sweeper, &worker] { sweeper.work(worker); });
    }
    sweep_result result;
    result.points = sweeper.result();
    result.writes = reference.writes;
    result.partitions = reference.partitions;
    result.interrupted = is_interrupted();
    result.real_us = std::chrono::duration_cast<std::chrono::microseconds>(
                         std::chrono::steady_clock::now() - started)
                         .count();
    return result;
}

} // namespace simdev
