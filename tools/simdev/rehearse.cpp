// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/rehearse.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <numeric>
#include <thread>

#include "package/format.h"
#include "tools/common/files.h"
#include "tools/common/key.h"
#include "tools/common/sha256.h"
#include "tools/simdev/folder.h"
#include "tools/simdev/package_server.h"
#include "tools/simdev/work.h"

namespace simdev {

namespace fs = std::filesystem;

namespace {

constexpr const char *key_name = "VENDOR_KEY";
constexpr const char *other_key_name = "VENID"; // looked at when there is no VENDOR_KEY

/// What a package is to do to a device, and the package as the device deciphers it.
struct planned_upgrade {
    const char *url_path;
    fwpkg::device_plan plan;
    const fwpkg::package_file *package;
};

/// A package with the plans for it, and as each key deciphers it: made before any thread starts,
/// since the device's own code that they take keeps its state in one place.
class planned_package {
public:
    planned_package(const fs::path &path, const char *url_path)
        : url_path_(url_path), bytes_(read_bytes(path, package_capacity)), plans_(bytes_)
    {
    }
    planned_upgrade plan(const fwpkg::named_device &device)
    {
        const auto &configuration = device.description.configuration;
        auto found = configuration.find(key_name);
        if (found == configuration.end())
            found = configuration.find(other_key_name);
        const auto key = found == configuration.end() ? std::nullopt : std::optional(found->second);
        if (!opened_.contains(key))
            opened_.emplace(key, fwpkg::open_package(bytes_, key));
        return {url_path_, plans_.plan(device), &opened_.at(key)};
    }
    [[nodiscard]] std::span<const uint8_t> bytes() const
    {
        return bytes_;
    }

private:
    const char *url_path_;
    std::vector<uint8_t> bytes_;
    fwpkg::plan_maker plans_;
    std::map<std::optional<std::string>, fwpkg::package_file> opened_;
};

struct described_device {
    std::string text;
    fwpkg::named_device device;
    planned_upgrade upgrade = {};
    std::optional<planned_upgrade> older = {}; ///< to the package that it holds before
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
    const run_options &run;
    const package_server &server;
    int sweep_jobs;
};

/// One device from its making to its last run.
class device_rehearsal {
public:
    device_rehearsal(const rehearsal &all, const fs::path &folder, rehearsed_device &result)
        : all_(all), folder_(folder), result_(result)
    {
    }

    void work(const described_device &described, const std::function<void(int)> &swept)
    {
        make_folder(folder_, described.device.description, described.text);
        if (all_.options.https)
            write_file(folder_ / "usr/etc/ca-cert.pem", all_.server.authority);
        if (described.older) {
            run(*described.older, "the older package: ", {});
            if (described.older->plan.exit_status != 0)
                result_.note =
                    "does not take the older package" + because(described.older->plan.reason);
        }
        const planned_upgrade &upgrade = described.upgrade;
        if (all_.options.sweep && upgrade.plan.exit_status == 0 && upgrade.plan.blocks > 0)
            sweep_cuts(upgrade.url_path, swept);
        result_.run = run(upgrade, "", all_.run.faults);
        if (const std::string got = result_text(*result_.run);
            !result_.expected.empty() && got != result_.expected)
            add_trouble(trouble_kind::expected,
                        got + ", expected: " + result_.expected + because(upgrade.plan.reason));
        std::error_code ignored; // it goes with the scratch folder at the latest
        fs::remove_all(folder_, ignored);
    }

private:
    static std::string because(const std::string &reason)
    {
        return reason.empty() ? "" : " (" + reason + ")";
    }

    void add_trouble(trouble_kind kind, const std::string &text)
    {
        result_.troubles.push_back({kind, text});
    }

    [[nodiscard]] run_options options_for(const char *url_path,
                                          const std::vector<std::string> &faults) const
    {
        const bool https = all_.options.https;
        run_options run = all_.run;
        run.folder = folder_;
        run.faults = faults;
        run.port_maps = {(https ? "443=" : "80=") + std::to_string(all_.server.port)};
        run.arguments = {std::string(https ? "https" : "http") + "://127.0.0.1" + url_path};
        return run;
    }

    observed_run run(const planned_upgrade &upgrade, const std::string &prefix,
                     const std::vector<std::string> &faults)
    {
        partition_contents planned = read_partitions(partition_files(folder_));
        write_as_planned(planned, upgrade.plan, *upgrade.package);
        observed_run run = observe_run(options_for(upgrade.url_path, faults));
        const partition_contents found = read_partitions(partition_files(folder_));
        for (const std::string &fault : compare_with_plan(upgrade.plan, run, planned, found))
            add_trouble(trouble_kind::plan, prefix + fault);
        return run;
    }

    void sweep_cuts(const char *url_path, const std::function<void(int)> &swept)
    {
        try {
            result_.swept = sweep(options_for(url_path, {}), all_.sweep_jobs, -1, swept);
        } catch (const failure &error) {
            if (is_interrupted())
                throw;
            add_trouble(trouble_kind::recovery, error.what());
            return;
        }
        const int64_t recovered = count_points(*result_.swept).recovered;
        const int64_t writes = result_.swept->writes;
        if (recovered != writes && !result_.swept->interrupted)
            add_trouble(trouble_kind::recovery, std::to_string(writes - recovered) + " of " +
                                                    std::to_string(writes) +
                                                    " power cuts are not mended by the next run");
    }

    const rehearsal &all_;
    fs::path folder_;
    rehearsed_device &result_;
};

/// Runs at a time. Where they really sleep they do hardly anything else.
int default_run_count(bool waits)
{
    const int cores = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    return (waits ? 16 : 2) * cores;
}

/// Rehearses on each of `devices`, some at a time.
void work_on_all(const rehearsal &all, const std::vector<described_device> &devices, size_t jobs,
                 std::vector<rehearsed_device> &results, const std::function<void(int)> &done)
{
    const scratch_folder scratch;
    std::mutex mutex;
    std::vector<int> percents(devices.size());
    const auto tell = [&](size_t index, int percent) {
        const std::lock_guard<std::mutex> guard(mutex);
        percents[index] = percent;
        done(std::accumulate(percents.begin(), percents.end(), 0) /
             static_cast<int>(percents.size()));
    };
    share_work(jobs, devices.size(), [&](size_t, size_t index) {
        try {
            device_rehearsal rehearsed(all, scratch.path / std::to_string(index), results[index]);
            rehearsed.work(devices[index], [&](int percent) { tell(index, percent * 99 / 100); });
        } catch (const std::exception &error) {
            if (!is_interrupted()) // else it says no more than that
                results[index].troubles.push_back({trouble_kind::none, error.what()});
        }
        tell(index, 100);
    });
}

} // namespace

bool rehearse_result::good() const
{
    return !interrupted && std::ranges::all_of(devices, [](const rehearsed_device &device) {
        return device.run && device.troubles.empty();
    });
}

rehearse_result rehearse(const rehearse_options &options, const run_options &run, int jobs,
                         const std::function<void(int)> &done)
{
    const int64_t started_us = steady_us();
    planned_package package(options.package, "/package");
    std::optional<planned_package> older;
    if (!options.older.empty())
        older.emplace(options.older, "/older");
    const std::optional<std::string> key = read_key(options.key_file);
    std::vector<described_device> devices;
    for (const fs::path &path : options.devices)
        devices.push_back(describe_device(path, key));

    rehearse_result result = {options.package.string(), sha256_text(package.bytes()), {}, 0, false};
    const std::vector<std::string> expected = read_expectations(options.expect, options.devices);
    for (size_t index = 0; index < devices.size(); index++) {
        described_device &described = devices[index];
        described.upgrade = package.plan(described.device);
        if (older)
            described.older = older->plan(described.device);
        result.devices.emplace_back().plan = described.upgrade.plan;
        result.devices.back().expected = expected[index];
    }

    const int runs = jobs > 0 ? jobs : default_run_count(!run.fast && !options.sweep);
    const int at_a_time = std::min(runs, static_cast<int>(devices.size()));
    served_files files = {{"/package", package.bytes()}};
    if (older)
        files.emplace("/older", older->bytes());
    const package_server server(files, options.https, runs);
    work_on_all({options, run, server, runs / at_a_time}, devices, static_cast<size_t>(at_a_time),
                result.devices, done);
    result.interrupted = is_interrupted();
    result.real_us = steady_us() - started_us;
    return result;
}

} // namespace simdev
