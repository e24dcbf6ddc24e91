// SPDX-License-Identifier: GPL-2.0-or-later
//
// A package as the device's own code reads it, as far as it can be read.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "package/md5.h"
#include "package/package.h"
#include "tools/fwpkg/blocks.h"

namespace fwpkg {

/// One entry of the part table and where it stands.
struct part_entry {
    int index;            ///< from 0
    uint32_t position;    ///< of the entry in the package
    uint32_t header_size; ///< as the entry says
    package_part part;    ///< its pointers lead into package_file::blocks

    /// "part 0 (kernel)"
    std::string place() const;
    bool is_optional() const;
    /// Where the entry's variable fields begin and end in the package.
    uint32_t conditions_position() const;
    uint32_t features_position() const;
    uint32_t features_end() const;
    std::span<const uint8_t> conditions() const;
    std::span<const uint8_t> features() const;
};

/// How far the reading went; each implies those before it.
enum class read_stage {
    nothing,    ///< empty or not a package: the record holds nothing of use
    head,       ///< header read; enciphered and no key given, or an unknown encryption
    deciphered, ///< `length_right` and `digest_right` are known; the table is not read
    table,      ///< as many entries as could be read are in `parts`
};

struct package_file {
    block_buffer blocks; ///< deciphered from read_stage::deciphered on
    package record;      ///< the header's fields; the part slots are not filled
    read_stage stage = read_stage::nothing;
    std::string problem; ///< why the reading ended, empty when nothing is missing
    size_t size = 0;     ///< bytes of the file
    bool length_right = false;
    bool digest_right = false;
    std::array<uint8_t, md5_digest_size>
        digest{}; ///< of what is there; the header's is in `record`
    std::vector<part_entry> parts;
    uint32_t table_end = 0; ///< position behind the last entry read
};

/// The digest in the header of a package that was read that far, as the device prints it: packages
/// of the same contents have the same, whatever their keys.
std::string content_identifier(const package_file &file);

/// Reads `bytes`, at most package_capacity of them. `key` deciphers an enciphered package and is
/// not used for one in clear. A wrong length leaves an enciphered package enciphered, as on the
/// device; so does no key. The table of an enciphered package is read only when the digest is
/// right.
package_file open_package(std::span<const uint8_t> bytes, const std::optional<std::string> &key);

/// One feature as the device would find it, or what is left over.
struct feature {
    std::string name;
    std::string value;
    bool complete; ///< false: the name or the value does not end inside the set, or there is none
};

/// The features of a set in order; an incomplete one is the last.
std::vector<feature> list_features(std::span<const uint8_t> set);

} // namespace fwpkg
