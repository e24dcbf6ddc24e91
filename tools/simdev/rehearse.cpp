// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/rehearse.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <numeric>
#include <thread>

#include "package/format.h"
#include "tools/common/files.h"
#include "tools/common/key.h"
#include "tools/common/sha256.h"
#include "tools/simdev/expectations.h"
#include "tools/simdev/folder.h"
#include "tools/simdev/interrupt.h"
#include "tools/simdev/package_server.h"

namespace simdev {

namespace fs = std::filesystem;

namespace {

constexpr const char *key_name = "VENDOR_KEY";
constexpr const char *other_key_name = "VENID"; // looked at when there is no VENDOR_KEY

/// A package with the plan for it of each device, and as each key deciphers it: made before any
/// thread starts, since the device's own code that they take keeps its state in one place.
class planned_package {
public:
    explicit planned_package(const fs::path &path)
        : bytes_(read_bytes(path, package_capacity)), plans_(bytes_)
    {
    }
    void plan(const fwpkg::named_device &device)
    {
        const auto &configuration = device.description.configuration;
        auto found = configuration.find(key_name);
        if (found == configuration.end())
            found = configuration.find(other_key_name);
        const auto key = found == configuration.end() ? std::nullopt : std::optional(found->second);
        if (!opened_.contains(key))
            opened_.emplace(key, fwpkg::open_package(bytes_, key));
        planned_.push_back({plans_.plan(device), &opened_.at(key)});
    }
    struct planned {
        fwpkg::device_plan plan;
        const fwpkg::package_file *package;
    };
    const planned &of(size_t device) const
    {
        return planned_.at(device);
    }
    std::span<const uint8_t> bytes() const
    {
        return bytes_;
    }

private:
    std::vector<uint8_t> bytes_;
    fwpkg::plan_maker plans_;
    std::map<std::optional<std::string>, fwpkg::package_file> opened_;
    std::vector<planned> planned_;
};

struct described_device {
    std::string text;
    fwpkg::named_device device;
};

described_device describe_device(const fs::path &path, const std::optional<std::string> &key)
{
    const std::string text = read_description(path);
    described_device result = {text, {path.string(), parse_device(text, path.string())}};
    auto &configuration = result.device.description.configuration;
    if (key && !configuration.contains(key_name) && !configuration.contains(other_key_name))
        configuration[key_name] = *key;
    return result;
}

std::optional<std::string> read_key(const fs::path &path)
{
    if (path.empty())
        return std::nullopt;
    const std::string key = read_key_file(path);
    if (key.find('\n') != std::string::npos)
        throw failure(path.string() + ": a key with a line break fits into no configuration");
    return key;
}

/// All that the devices share.
struct rehearsal {
    const rehearse_options &options;
    const std::vector<described_device> &devices;
    const planned_package &package;
    const std::optional<planned_package> &older;
    const package_server &server;
    fs::path scratch;
    int sweep_jobs;
};

/// One device from its making to its last run.
class device_rehearsal {
public:
    device_rehearsal(const rehearsal &all, size_t index, rehearsed_device &result)
        : all_(all), index_(index), result_(result),
          folder_(all.scratch / ("device" + std::to_string(index)))
    {
    }

    void work(const std::function<void(int64_t, int64_t)> &swept)
    {
        make_folder(folder_, all_.devices[index_].text, all_.devices[index_].device.name);
        write_configuration();
        if (all_.older)
            take_older();
        const auto &[plan, package] = all_.package.of(index_);
        if (all_.options.sweep && plan.exit_status == 0 && plan.blocks > 0)
            sweep_cuts(swept);
        result_.run = run("/package", plan, *package, "", all_.options.run.faults);
        if (const std::string got = result_text(*result_.run);
            !result_.expected.empty() && got != result_.expected)
            result_.troubles.push_back(
                {trouble_kind::expected,
                 got + ", expected: " + result_.expected + because(plan.reason)});
        std::error_code ignored; // it goes with the scratch folder at the latest
        fs::remove_all(folder_, ignored);
    }

private:
    static std::string because(const std::string &reason)
    {
        return reason.empty() ? "" : " (" + reason + ")";
    }

    /// Once more, with the key that the description leaves to the command line.
    void write_configuration()
    {
        std::string text;
        for (const auto &[key, value] : all_.devices[index_].device.description.configuration)
            text += key + "=" + value + "\n";
        write_file(folder_ / "etc/syscfg.conf", text);
        if (all_.options.https)
            write_file(folder_ / "usr/etc/ca-cert.pem", all_.server.authority());
    }

    run_options options_for(const char *path, const std::vector<std::string> &faults) const
    {
        const bool https = all_.options.https;
        run_options run = all_.options.run;
        run.folder = folder_;
        run.faults = faults;
        run.port_maps = {(https ? "443=" : "80=") + std::to_string(all_.server.port())};
        run.arguments = {std::string(https ? "https" : "http") + "://127.0.0.1" + path};
        return run;
    }

    observed_run run(const char *path, const fwpkg::device_plan &plan,
                     const fwpkg::package_file &package, const std::string &prefix,
                     const std::vector<std::string> &faults)
    {
        partition_contents planned = read_contents(folder_);
        write_as_planned(planned, plan, package);
        observed_run run = observe_run(options_for(path, faults));
        for (const std::string &fault :
             compare_with_plan(plan, run, planned, read_contents(folder_)))
            result_.troubles.push_back({trouble_kind::plan, prefix + fault});
        return run;
    }

    void take_older()
    {
        const auto &[plan, package] = all_.older->of(index_);
        run("/older", plan, *package, "the older package: ", {});
        if (plan.exit_status != 0)
            result_.note = "does not take the older package" + because(plan.reason);
    }

    void sweep_cuts(const std::function<void(int64_t, int64_t)> &swept)
    {
        try {
            result_.swept = sweep(options_for("/package", {}), all_.sweep_jobs, -1, swept);
        } catch (const failure &error) {
            if (is_interrupted())
                throw;
            result_.troubles.push_back({trouble_kind::recovery, error.what()});
            return;
        }
        const int64_t recovered = count_points(*result_.swept).recovered;
        if (recovered != result_.swept->writes && !result_.swept->interrupted)
            result_.troubles.push_back(
                {trouble_kind::recovery, std::to_string(result_.swept->writes - recovered) +
                                             " of " + std::to_string(result_.swept->writes) +
                                             " power cuts are not mended by the next run"});
    }

    const rehearsal &all_;
    size_t index_;
    rehearsed_device &result_;
    fs::path folder_;
};

/// Hands the devices out to threads.
class rehearser {
public:
    rehearser(const rehearsal &all, std::vector<rehearsed_device> &results,
              const std::function<void(int)> &done)
        : all_(all), results_(results), done_(done), percents_(results.size())
    {
    }

    void work()
    {
        for (size_t index = next_++; index < results_.size() && !is_interrupted();
             index = next_++) {
            try {
                device_rehearsal(all_, index, results_[index])
                    .work([this, index](int64_t tried, int64_t points) {
                        tell(index, static_cast<int>(tried * 99 / points));
                    });
            } catch (const std::exception &error) {
                if (!is_interrupted()) // else it says no more than that
                    results_[index].troubles.push_back({trouble_kind::none, error.what()});
            }
            tell(index, 100);
        }
    }

private:
    void tell(size_t index, int percent)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        percents_[index] = percent;
        done_(std::accumulate(percents_.begin(), percents_.end(), 0) /
              static_cast<int>(percents_.size()));
    }

    const rehearsal &all_;
    std::vector<rehearsed_device> &results_;
    const std::function<void(int)> &done_;
    std::vector<int> percents_;
    std::atomic<size_t> next_ = 0;
    std::mutex mutex_;
};

/// Runs at a time. Where they really sleep they do hardly anything else.
int run_count(const rehearse_options &options)
{
    const int cores = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    if (options.jobs > 0)
        return options.jobs;
    return (options.run.fast || options.sweep ? 2 : 16) * cores;
}

} // namespace

bool rehearse_result::good() const
{
    return !interrupted && std::ranges::all_of(devices, [](const rehearsed_device &device) {
        return device.run && device.troubles.empty();
    });
}

rehearse_result rehearse(const rehearse_options &options, const std::function<void(int)> &done)
{
    const auto started = std::chrono::steady_clock::now();
    planned_package package(options.package);
    std::optional<planned_package> older;
    if (!options.older.empty())
        older.emplace(options.older);
    const std::optional<std::string> key = read_key(options.key_file);
    std::vector<described_device> devices;
    for (const fs::path &path : options.devices)
        devices.push_back(describe_device(path, key));

    rehearse_result result = {options.package.string(), sha256_text(package.bytes()), {}, 0, false};
    const std::vector<std::string> expected = read_expectations(options.expect, options.devices);
    for (size_t index = 0; index < devices.size(); index++) {
        package.plan(devices[index].device);
        if (older)
            older->plan(devices[index].device);
        result.devices.emplace_back().plan = package.of(index).plan;
        result.devices.back().expected = expected[index];
    }

    const int runs = run_count(options);
    const int jobs = std::min(runs, static_cast<int>(devices.size()));
    const int sweep_jobs = runs / jobs;
    served_files files = {{"/package", package.bytes()}};
    if (older)
        files.emplace("/older", older->bytes());
    const package_server server(files, options.https, runs);
    const scratch_folder scratch;
    const rehearsal all = {options, devices, package, older, server, scratch.path(), sweep_jobs};
    rehearser rehearser(all, result.devices, done);
    {
        std::vector<std::jthread> threads; // joined, also where one of them cannot be started
        for (int job = 0; job < jobs; job++)
            threads.emplace_back([&rehearser] { rehearser.work(); });
    }
    result.interrupted = is_interrupted();
    result.real_us = std::chrono::duration_cast<std::chrono::microseconds>(
                         std::chrono::steady_clock::now() - started)
                         .count();
    return result;
}

} // namespace simdev
