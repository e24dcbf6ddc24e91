// SPDX-License-Identifier: GPL-2.0-or-later
//
// A device made from dumps, and the partitions of a device judged.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tools/doctor/flash_judge.h"

namespace simdev {

/// Number of a partition -> the dump that it is to hold.
using dump_files = std::map<int, std::filesystem::path>;

/// "2=DUMP" taken apart into `dumps`. Empty, or what is wrong with it.
std::string add_dump(dump_files &dumps, const std::string &pair);

/// The description of a small device whose partitions have the dumps' sizes.
std::string describe_dumps(const dump_files &dumps);

/// Throws failure where a dump has another size than the partition in `text`, which `name` stands
/// for.
void check_dumps(const dump_files &dumps, const std::string &text, const std::string &name);

/// Copies the dumps into the device's partitions.
void load_dumps(const std::filesystem::path &folder, const dump_files &dumps);

/// As `fwdoctor flash` for all partitions of the device in `folder`; its exit status.
int report_status(const std::filesystem::path &folder,
                  const std::vector<doctor::package_choice> &packages, bool as_json);

} // namespace simdev
