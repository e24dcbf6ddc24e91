// SPDX-License-Identifier: GPL-2.0-or-later
//
// simdev's model of the platform under a unit test, which links simdev_wrap: a partition in
// a folder of its own, every operation recorded, sleeps counted and not slept.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/simdev/core/clock.h"
#include "tools/simdev/core/sim.h"

class simulated_platform {
public:
    /// A device with the partition `number` of `size` bytes, all FF. `faults` as for simdev run
    /// --fault, separated by ";". Without `fast` sleeps are slept.
    simulated_platform(int number, size_t size, const char *faults = "", bool fast = true)
    {
        std::string name = std::filesystem::temp_directory_path() / "platform-XXXXXX";
        folder_ = mkdtemp(name.data());
        std::filesystem::create_directories(folder_ / "dev");
        std::filesystem::create_directories(folder_ / "tmp");
        std::ofstream(folder_ / "dev/gpio").flush();
        std::ofstream(path(number), std::ios::binary) << std::string(size, '\xFF');
        sim_settings settings;
        settings.fill("");
        settings[setting_folder] = folder_.c_str();
        settings[setting_fast] = fast ? "1" : "0";
        settings[setting_grace_ms] = "1000";
        settings[setting_faults] = faults;
        const auto sink = [](void *self, const sim_operation *operation) {
            static_cast<simulated_platform *>(self)->record(*operation);
        };
        char error[256];
        if (sim_start(settings, sink, this, error, sizeof error) < 0)
            throw std::runtime_error(error);
    }
    simulated_platform(const simulated_platform &) = delete;
    simulated_platform &operator=(const simulated_platform &) = delete;
    ~simulated_platform()
    {
        sim_stop();
        std::filesystem::remove_all(folder_);
    }

    std::string content(int number) const
    {
        std::ostringstream text;
        text << std::ifstream(path(number), std::ios::binary).rdbuf();
        return text.str();
    }

    const std::filesystem::path &folder() const
    {
        return folder_;
    }

    /// What was done so far, each operation as "kick" or "kick failed".
    std::vector<std::string> operations;

private:
    std::filesystem::path path(int number) const
    {
        return folder_ / "dev" / ("fla" + std::to_string(number));
    }

    void record(const sim_operation &operation)
    {
        const bool failed = operation.result < 0 && operation.error != 0;
        operations.push_back(sim_op_names[operation.op] + std::string(failed ? " failed" : ""));
    }

    std::filesystem::path folder_;
};
