// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/expectations.h"

#include <algorithm>
#include <array>

#include "tools/common/failure.h"
#include "tools/common/files.h"
#include "tools/common/toml_text.h"

namespace simdev {

std::vector<std::string> read_expectations(const std::string &expect,
                                           const std::vector<std::filesystem::path> &devices)
{
    constexpr std::array results = {"upgraded", "refused", "failed", "endless"};
    if (expect.empty() || expect == results[0] || expect == results[1])
        return std::vector<std::string>(devices.size(), expect);
    const auto name = [](const std::filesystem::path &device) {
        return device.filename().string();
    };
    std::vector<std::string> expected(devices.size());
    toml::table table;
    try {
        table = parse_toml(read_text(expect));
    } catch (const toml::parse_error &error) {
        throw failure(expect + ":" + std::to_string(error.source().begin.line) + ": " +
                      std::string(error.description()));
    }
    for (auto &&[key, node] : table) {
        const std::string place = expect + ":" + std::to_string(key.source().begin.line) + ": ";
        const std::string result = node.value_or<std::string>("");
        if (std::ranges::find(results, result) == results.end())
            throw failure(place + "\"" + std::string(key.str()) +
                          "\" must be upgraded, refused, failed or endless, in quotes");
        if (std::ranges::find(devices, std::string(key.str()), name) == devices.end())
            throw failure(place + "no device is called \"" + std::string(key.str()) + "\"");
        for (size_t index = 0; index < devices.size(); index++)
            if (name(devices[index]) == key.str())
                expected[index] = result;
    }
    for (size_t index = 0; index < devices.size(); index++)
        if (expected[index].empty())
            throw failure(expect + ": has nothing for \"" + name(devices[index]) + "\"");
    return expected;
}

} // namespace simdev
