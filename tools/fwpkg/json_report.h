// SPDX-License-Identifier: GPL-2.0-or-later
//
// What the commands print for programs: one JSON document, indented, with a newline at its end.
// docs/json.md describes each; a field that changes its meaning, or goes, raises json_format.
//
// All text out of a package is made safe for a terminal. The one unit that includes the JSON
// library.
#pragma once

#include <string>
#include <vector>

#include "tools/fwpkg/condition_report.h"
#include "tools/fwpkg/difference.h"
#include "tools/fwpkg/finding.h"
#include "tools/fwpkg/package_file.h"
#include "tools/fwpkg/planner.h"

namespace fwpkg {

constexpr int json_format = 1; ///< the member "format" of every document

/// A package file by its name and the sum of its bytes.
struct summed_file {
    std::string name;
    uint64_t size;
    std::string sha256;
};

std::string show_json(const package_file &file, const summed_file &summed);
std::string make_json(const package_file &file, const summed_file &output,
                      const std::vector<summed_file> &inputs, const std::vector<finding> &found);
std::string check_json(const std::string &name, const std::vector<finding> &found, bool sound);
std::string plan_json(const std::string &name, const std::vector<device_plan> &plans);
std::string diff_json(const package_difference &difference, const std::string &before_name,
                      const std::string &after_name);
std::string condition_json(const std::string &text, const condition_report &report);
std::string extract_json(const std::string &name, const std::vector<summed_file> &files);

} // namespace fwpkg
