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
    constexpr std::string_view blanks = " \t\v\f";
    constexpr std::string_view line_ends = "\r\n";
    constexpr size_t usual_length = 8;
    if (key.empty())
        return {"the key is empty: devices decipher with the single byte 0"};
    std::vector<std::string> oddities;
    const auto at_an_end = [key](std::string_view which) {
        return which.find(key.front()) != which.npos || which.find(key.back()) != which.npos;
    };
    if (at_an_end(line_ends))
        oddities.emplace_back("the key begins or ends with a line end, which is part of it");
    if (at_an_end(blanks))
        oddities.emplace_back("the key begins or ends with a blank, which is part of it");
    while (!key.empty() &&
           (line_ends.find(key.back()) != key.npos || blanks.find(key.back()) != key.npos))
        key.remove_suffix(1);
    while (!key.empty() &&
           (line_ends.find(key.front()) != key.npos || blanks.find(key.front()) != key.npos))
        key.remove_prefix(1);
    if (std::ranges::any_of(key, is_control))
        oddities.emplace_back("the key has a control character in it");
    if (key.size() < usual_length)
        oddities.push_back("the key has " + std::to_string(key.size()) + " characters" +
                           (oddities.empty() ? "" : " without that") + ": fewer than " +
                           std::to_string(usual_length) + " are soon tried");
    return oddities;
}
