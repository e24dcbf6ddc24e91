// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/operation_json.h"

#include <cstring>

#include "tools/common/json.h"
#include "tools/simdev/report.h"

namespace simdev {

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

} // namespace simdev
