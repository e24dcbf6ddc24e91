// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/common/key.h"

#include <algorithm>

#include "tools/common/files.h"

namespace {

bool is_control(char c)
{
    return static_cast<unsigned char>(c) < ' ' || c == '\x7F';
}

} // namespace

std::string read_key_file(const std::filesystem::path &path)
{
    constexpr size_t limit = 64 * 1024;
    std::string key = read_text(path, limit);
    if (key.ends_with('\n'))
        key.pop_back();
    const size_t nul = key.find('\0');
    if (nul != std::string::npos)
        throw failure(path.string() + ": byte " + std::to_string(nul) +
                      " is NUL, which a key cannot hold");
    return key;
}

std::vector<std::string> key_oddities(std::string_view key)
{
    constexpr std::string_view line_ends = "\r\n";
    constexpr std::string_view blanks = " \t\v\f";
    constexpr std::string_view white = "\r\n \t\v\f";
    constexpr size_t usual_length = 8;
    if (key.empty())
        return {"the key is empty: devices decipher with the single byte 0"};
    const auto ends_with_one_of = [key](std::string_view which) {
        return which.find(key.front()) != which.npos || which.find(key.back()) != which.npos;
    };
    std::vector<std::string> oddities;
    if (ends_with_one_of(line_ends))
        oddities.emplace_back("the key begins or ends with a line end, which is part of it");
    if (ends_with_one_of(blanks))
        oddities.emplace_back("the key begins or ends with a blank, which is part of it");
    const bool stripped = !oddities.empty();
    key.remove_prefix(std::min(key.find_first_not_of(white), key.size()));
    key.remove_suffix(key.size() - std::min(key.find_last_not_of(white) + 1, key.size()));
    if (std::ranges::any_of(key, is_control))
        oddities.emplace_back("the key has a control character in it");
    if (key.size() < usual_length)
        oddities.push_back("the key has " + std::to_string(key.size()) +
                           (key.size() == 1 ? " character" : " characters") +
                           (stripped ? " without that" : "") + ": fewer than " +
                           std::to_string(usual_length) + " are soon tried");
    return oddities;
}
