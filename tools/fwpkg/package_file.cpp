// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/package_file.h"

#include <algorithm>
#include <new>

#include "package/decrypt.h"
#include "package/validate.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

void read_table(package_file &file)
{
    const uint8_t *block = file.blocks->blocks[0];
    device_words words;
    uint32_t position = package_header_size;
    for (int index = 0; index < package_part_count; index++) {
        part_entry entry{index, position, 0, {}};
        const int remaining = block_size - static_cast<int>(position);
        const int header_size =
            read_part(&entry.part, remaining > 0 ? block + position : nullptr, remaining);
        if (header_size < 0) {
            file.problem = "part " + std::to_string(index) + " at byte " +
                           std::to_string(position) + " cannot be read: " + words.lines();
            return;
        }
        if (header_size == 0)
            return;
        entry.header_size = static_cast<uint32_t>(header_size);
        position += entry.header_size;
        file.parts.push_back(entry);
        file.table_end = position;
    }
}

bool read_head(package_file &file)
{
    device_words words;
    init_package_struct(&file.record);
    if (file.size == 0)
        file.problem = "the file is empty";
    else if (read_package_head(&file.record, file.blocks->blocks[0], block_size) != 0)
        file.problem = "not a package: " + words.lines();
    return file.problem.empty();
}

/// Deciphers where that is needed; false where the device would give up.
bool decipher(package_file &file, const std::optional<std::string> &key)
{
    if (file.record.encryp == encryption_none)
        return true;
    if (file.record.encryp != encryption_rc4)
        file.problem = "unknown encryption " + std::to_string(file.record.encryp);
    else if (!file.length_right)
        file.problem = "not deciphered, since the length is wrong";
    else if (!key)
        file.problem = "enciphered, and no key is given";
    else if (cipher_package(&file.record, file.blocks.get(), key->c_str()) != 0)
        throw std::bad_alloc();
    return file.problem.empty();
}

} // namespace

std::string part_entry::place() const
{
    return "part " + std::to_string(index) + " (" + type_name(part.type) + ")";
}

bool part_entry::is_optional() const
{
    return (part.flags & part_flag_optional) != 0;
}

uint32_t part_entry::conditions_position() const
{
    return position + part_conditions_offset;
}

uint32_t part_entry::features_position() const
{
    return conditions_position() + static_cast<uint32_t>(part.features - part.conditions);
}

uint32_t part_entry::features_end() const
{
    return features_position() + part.features_length;
}

std::span<const uint8_t> part_entry::conditions() const
{
    return {part.conditions, part.conditions_length};
}

std::span<const uint8_t> part_entry::features() const
{
    return {part.features, part.features_length};
}

std::string content_identifier(const package_file &file)
{
    return hex_digest({file.record.checksum, package_checksum_size});
}

package_file open_package(std::span<const uint8_t> bytes, const std::optional<std::string> &key)
{
    package_file file;
    file.blocks = load_blocks(bytes);
    file.size = bytes.size();
    file.table_end = package_header_size;
    if (!read_head(file))
        return file;
    file.stage = read_stage::head;
    file.length_right = file.record.size == file.size;
    if (!decipher(file, key))
        return file;
    file.stage = read_stage::deciphered;
    if (file.length_right) {
        digest_package(&file.record, file.blocks.get(), file.digest.data());
        file.digest_right =
            std::equal(file.digest.begin(), file.digest.end(), file.record.checksum);
    }
    if (file.record.encryp == encryption_rc4 && !file.digest_right) {
        file.problem = "the digest is wrong: another key, or damaged";
        return file;
    }
    file.stage = read_stage::table;
    read_table(file);
    return file;
}

std::vector<feature> list_features(std::span<const uint8_t> set)
{
    std::vector<feature> features;
    const auto next = [&set](std::string &text) {
        const auto end = std::find(set.begin(), set.end(), 0);
        text.assign(set.begin(), end);
        const bool complete = end != set.end();
        set = set.subspan(text.size() + (complete ? 1 : 0));
        return complete;
    };
    while (!set.empty()) {
        feature found;
        found.complete = next(found.name) && next(found.value);
        features.push_back(std::move(found));
    }
    return features;
}

} // namespace fwpkg
