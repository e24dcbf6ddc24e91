// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/report.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

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

std::string operation_json(const sim_operation &operation, const std::vector<std::string> &faults)
{
    json line = {{"n", operation.n}, {"op", sim_op_names[operation.op]}};
    const auto add_number = [&line](const char *name, int64_t value) {
        if (value != sim_absent)
            line[name] = value;
    };
    if (operation.target[0] != '\0')
        line["target"] = json_text(operation.target);
    add_number("number", operation.number);
    add_number("offset", operation.offset);
    add_number("length", operation.length);
    add_number("result", operation.result);
    if (operation.error != 0) {
        const char *name = strerrorname_np(operation.error);
        line["error"] = name == nullptr ? std::to_string(operation.error) : name;
    }
    add_number("duration_us", operation.duration_us);
    add_number("received", operation.received);
    add_number("sent", operation.sent);
    add_number("calls", operation.calls);
    if (operation.op == op_open)
        line["access"] = json_text(operation.text_view());
    if (operation.op == op_kick) {
        line["line"] = operation.line;
        line["level"] = operation.level;
    }
    if (operation.op == op_datagram)
        line["text"] = json_text(operation.text_view());
    if (operation.fault >= 0) {
        const std::string &fault = faults.at(static_cast<size_t>(operation.fault));
        line["fault"] = fault.substr(0, fault.find_first_of("@x:"));
    }
    line["virtual_us"] = operation.virtual_us;
    line["real_us"] = operation.real_us;
    return line.dump(-1, true);
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
