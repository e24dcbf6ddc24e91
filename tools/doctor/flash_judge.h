// SPDX-License-Identifier: GPL-2.0-or-later
//
// Partitions, or dumps of them, judged: what they hold, what a boot loader would make of them, and
// what to do.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/common/json.h"
#include "tools/image/compare.h"
#include "tools/image/trailer.h"

namespace doctor {

/// A package that partitions are compared with.
struct package_choice {
    std::filesystem::path path;
    std::filesystem::path key_file; ///< empty for none
};

/// A part that an upgrade would write.
struct known_part {
    std::string package; ///< the package's path
    int index;           ///< in its table
    std::string type;    ///< "kernel"
    std::vector<uint8_t> data;
    uint32_t crc; ///< of the data, as in the trailer

    /// "part 0 (kernel) of flash.pkg"
    [[nodiscard]] std::string name() const;
};

/// The parts of the types that are written, with data, of the package at `path`, which has `key`.
/// Throws failure, one line with the path, for a file that is no package, or cannot be read,
/// deciphered or trusted: another key than its own.
std::vector<known_part> read_parts(const std::filesystem::path &path,
                                   const std::optional<std::string> &key);

struct partition_verdict {
    std::string path;
    uint64_t size = 0;
    image::trailer_verdict trailer;
    image::comparison comparison;
    image::content_state content = image::content_state::unknown;
    /// The part that all of the partition's data is of: the one that the trailer is of, where there
    /// are several. None where no part is there as a whole.
    std::optional<size_t> holds;
    /// The trailer is valid and, where there are parts to compare with, one is there as a whole.
    bool whole = false;
    std::string advice; ///< what to do, one sentence
};

/// Judges the partition at `path`. Throws failure where it cannot be read.
partition_verdict judge_partition(const std::filesystem::path &path,
                                  const std::vector<known_part> &parts);

/// For people: some lines a partition.
std::string verdict_text(const partition_verdict &verdict, const std::vector<known_part> &parts);
json verdict_json(const partition_verdict &verdict, const std::vector<known_part> &parts);

/// Judges all of `dumps` and prints them, as JSON when asked to. What cannot be judged, or compared
/// with, is said in a line on standard error, with `program` in front, and the rest goes on; so is
/// what is odd about a key.
/// Returns exit_good when every partition is whole, exit_bad when one is not, exit_trouble when
/// something could not be judged.
int report_partitions(const char *program, const std::vector<std::filesystem::path> &dumps,
                      const std::vector<package_choice> &packages, bool as_json);

} // namespace doctor
