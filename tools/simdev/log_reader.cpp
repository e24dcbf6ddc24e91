// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/log_reader.h"

#include <nlohmann/json.hpp>

#include "tools/simdev/failure.h"

namespace simdev {

namespace {

operation parse_operation(std::string_view line)
{
    const nlohmann::json json = nlohmann::json::parse(line);
    operation result;
    result.n = json.at("n");
    result.op = json.at("op");
    result.target = json.value("target", "");
    result.text = json.value("text", "");
    result.error = json.value("error", "");
    result.fault = json.value("fault", "");
    result.number = json.value("number", INT64_C(0));
    result.offset = json.value("offset", INT64_C(0));
    result.length = json.value("length", INT64_C(0));
    result.result = json.value("result", INT64_C(0));
    result.duration_us = json.value("duration_us", INT64_C(0));
    result.virtual_us = json.at("virtual_us");
    result.real_us = json.at("real_us");
    return result;
}

} // namespace

void log_reader::take(std::string_view bytes)
{
    buffer_ += bytes;
    size_t start = 0;
    for (size_t end = 0; (end = buffer_.find('\n', start)) != std::string::npos; start = end + 1)
        take_line(std::string_view(buffer_).substr(start, end - start));
    buffer_.erase(0, start);
}

void log_reader::take_line(std::string_view line)
{
    const operation operation = parse_operation(line);
    if (operation.n != ++count_)
        throw failure("operation " + std::to_string(count_) + " is missing in the log");
    if (listener_.on_operation)
        listener_.on_operation(operation, line);
}

} // namespace simdev
