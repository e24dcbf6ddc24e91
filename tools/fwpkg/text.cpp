// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/text.h"

#include <algorithm>
#include <cstdio>

#include "package/package.h"

namespace fwpkg {

std::string hex(std::span<const uint8_t> bytes)
{
    std::string result;
    for (const uint8_t byte : bytes) {
        char digits[4];
        snprintf(digits, sizeof digits, result.empty() ? "%02x" : " %02x", byte);
        result += digits;
    }
    return result;
}

std::string hex_digest(std::span<const uint8_t> digest)
{
    std::string result = hex(digest);
    std::erase(result, ' ');
    return result;
}

std::string hex_word(uint32_t word)
{
    char digits[9];
    snprintf(digits, sizeof digits, "%08x", static_cast<unsigned>(word));
    return digits;
}

std::string type_name(int type)
{
    if (type >= 0 && type < part_type_count)
        return part_type_names[type];
    return "unknown<" + std::to_string(type) + ">";
}

std::string table_text(const std::vector<std::vector<std::string>> &rows)
{
    std::vector<size_t> widths;
    for (const auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); i++)
            widths[i] = std::max(widths[i], row[i].size());
    }
    std::string text;
    for (const auto &row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); i++)
            line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

std::string count_of(uint64_t count, std::string_view noun)
{
    return std::to_string(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

} // namespace fwpkg
