// SPDX-License-Identifier: GPL-2.0-or-later
//
// What a command has to say, in rows: each is a line or a block of text, and the same as JSON, so
// that neither form can say what the other does not.
#pragma once

#include <string>
#include <vector>

#include "tools/common/json.h"
#include "tools/simdev/core/operation.h"

namespace simdev {

class report {
public:
    /// `fields` is an object whose fields become fields of the whole; objects that several rows
    /// have are merged. Further lines of `text` stand below the first.
    void add(const std::string &label, const std::string &text, const json &fields);

    /// The field `name` is an object, whichever rows it gets.
    void begin(const std::string &name);

    /// Label and text of each row, a line each as a rule.
    [[nodiscard]] const std::string &text() const
    {
        return text_;
    }
    /// The members in the order of their names.
    [[nodiscard]] json document() const
    {
        return document_.sorted();
    }

private:
    std::string text_;
    json document_ = {{"format", 1}}; // docs/json.md
};

/// The operation as one JSON object without a line break, a line of `--log`
/// (docs/simulated-device.md has the fields). `faults` are the texts of the run's faults.
std::string operation_json(const sim_operation &operation, const std::vector<std::string> &faults);

/// "12.345 s".
std::string seconds_text(int64_t microseconds);

/// `text` filled up with blanks to `width`.
std::string pad(std::string text, size_t width);

/// Bytes as text for JSON: those above 7F as the characters of these numbers.
std::string json_text(std::string_view bytes);

} // namespace simdev
