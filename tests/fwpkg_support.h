// SPDX-License-Identifier: GPL-2.0-or-later
//
// Packages for the tests of fwpkg, made from manifests.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/text.h"
#include "tools/common/failure.h"
#include "tools/fwpkg/maker.h"

using bytes = std::vector<uint8_t>;

inline bytes bytes_of(std::string_view text)
{
    return {text.begin(), text.end()};
}

inline std::string joined(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += line + "\n";
    return text;
}

/// A folder with a manifest and its files, gone with the test.
struct maker_folder {
    std::filesystem::path path;
    maker_folder(std::initializer_list<std::pair<std::string, std::string>> files)
    {
        std::string name = (std::filesystem::temp_directory_path() / "fwpkg.XXXXXX").string();
        path = mkdtemp(name.data());
        for (const auto &[file, content] : files)
            add(file, content);
    }
    maker_folder(const maker_folder &) = delete;
    maker_folder &operator=(const maker_folder &) = delete;
    ~maker_folder()
    {
        std::filesystem::remove_all(path);
    }

    void add(const std::string &name, const std::string &content) const
    {
        std::ofstream(path / name, std::ios::binary) << content;
    }
    bytes make(const std::string &text, const std::optional<std::string> &key = {}) const
    {
        add("m.toml", text);
        return fwpkg::make_package(fwpkg::read_manifest(path / "m.toml"), key).bytes;
    }
    /// The failure's line without the folder, empty when there is none.
    std::string failure_of(const std::string &text) const
    {
        try {
            make(text);
        } catch (const failure &error) {
            return replaced(error.what(), path.string() + "/", "");
        }
        return {};
    }
};
