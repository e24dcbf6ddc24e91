// SPDX-License-Identifier: GPL-2.0-or-later
//
// A device folder: one simulated device, its flash included.
//
//     device.toml                       its description
//     dev/fla0 ... fla9                 the partitions, each exactly as long as the partition
//     dev/gpio                          an empty file that stands for the GPIO device
//     etc/syscfg.conf                   the system configuration, KEY=value lines
//     etc/rc.d/init.d/network.stop      the script
//     usr/etc/ca-cert.pem               the CA file for https, put there by the user
//     tmp/                              the status sockets, while a run lasts
//     run/                              standard output and error of the last run
#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "tools/common/files.h"
#include "tools/device/device.h"
#include "tools/image/trailer.h"

namespace simdev {

/// Makes the folder for `described`, which `text` describes, but for its configuration. All
/// partitions are erased (bytes FF). Throws failure; a folder that exists must be empty. Where it
/// fails or simdev is interrupted, nothing of it is left.
void make_folder(const std::filesystem::path &folder, const device &described,
                 const std::string &text);

/// The description of the device in `folder`. Throws failure when it is no device folder, and what
/// read_device throws.
device read_folder(const std::filesystem::path &folder);

/// Where the device's file `path` ("/dev/gpio") lies in `folder`.
std::filesystem::path folder_path(const std::filesystem::path &folder, const char *path);

/// The partitions there are: number -> file.
std::map<int, std::filesystem::path> partition_files(const std::filesystem::path &folder);

/// Number of a partition -> all its bytes.
using partition_contents = std::map<int, std::string>;
partition_contents read_partitions(const std::map<int, std::filesystem::path> &files);

/// Judges the trailer of a partition with this content.
image::trailer_state judge_content(std::string_view content);

/// The folder is one command's at a time.
class folder_lock {
public:
    /// Throws failure where there is no such folder, and where another simdev has it.
    explicit folder_lock(const std::filesystem::path &folder);

private:
    descriptor folder_;
};

/// A folder in the place for temporary files, removed with all that is in it.
class scratch_folder {
public:
    scratch_folder(); ///< throws failure
    ~scratch_folder();
    scratch_folder(const scratch_folder &) = delete;
    scratch_folder &operator=(const scratch_folder &) = delete;
    std::filesystem::path path;
};

} // namespace simdev
