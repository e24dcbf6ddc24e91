// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/report.h"

#include <algorithm>
#include <cstdio>

namespace simdev {

void report::add(const std::string &label, const std::string &text, const json &fields)
{
    constexpr size_t label_width = 12;
    const std::string indent(label_width, ' ');
    text_ += pad(label, label_width);
    for (const char character : text)
        text_ += character == '\n' ? "\n" + indent : std::string(1, character);
    text_ += '\n';
    document_.merge(fields);
}

void report::begin(const std::string &name)
{
    document_[name] = json::object();
}

std::string seconds_text(int64_t microseconds)
{
    char text[32];
    snprintf(text, sizeof text, "%.3f s", static_cast<double>(microseconds) / 1e6);
    return text;
}

std::string pad(std::string text, size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

std::string json_text(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) {
        const auto number = static_cast<unsigned char>(byte);
        if (number >= 0x80)
            text += static_cast<char>(0xC0 | number >> 6);
        text += number >= 0x80 ? static_cast<char>(0x80 | (number & 0x3F)) : byte;
    }
    return text;
}

} // namespace simdev
