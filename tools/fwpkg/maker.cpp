// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/maker.h"

#include <algorithm>
#include <new>

#include "package/decrypt.h"
#include "package/md5.h"
#include "package/package.h"
#include "package/validate.h"
#include "tools/common/files.h"
#include "tools/fwpkg/blocks.h"
#include "tools/fwpkg/condition_code.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

using bytes = std::vector<uint8_t>;

size_t round_up(size_t size, size_t unit)
{
    return (size + unit - 1) / unit * unit;
}

void append_be16(bytes &to, size_t value)
{
    to.push_back(static_cast<uint8_t>(value >> 8));
    to.push_back(static_cast<uint8_t>(value));
}

void append_be32(bytes &to, size_t value)
{
    append_be16(to, value >> 16);
    append_be16(to, value);
}

/// Appends the length word and the bytes of a variable field, and pads both to a multiple of four.
void append_field(bytes &to, const bytes &field)
{
    append_be16(to, field.size());
    to.insert(to.end(), field.begin(), field.end());
    to.resize(round_up(to.size(), part_field_alignment));
}

bytes features_field(const std::map<std::string, std::string> &features)
{
    bytes field;
    for (const auto &[name, value] : features) {
        for (const std::string &text : {name, value}) {
            field.insert(field.end(), text.begin(), text.end());
            field.push_back(0);
        }
    }
    return field;
}

/// One entry; its header size does not fit the word when it is above 65535, and the table not the
/// block long before.
bytes entry_bytes(const manifest_part &part, size_t size, size_t offset)
{
    bytes variable;
    append_field(variable, part.conditions
                               ? compile_condition(*part.conditions, part.place + ": conditions")
                               : bytes());
    append_field(variable, features_field(part.features));
    bytes entry;
    append_be16(entry, part_entry_minimum + variable.size());
    entry.push_back(static_cast<uint8_t>(part.type));
    entry.push_back(part.compress);
    append_be32(entry, part.actual_size.value_or(static_cast<uint32_t>(size)));
    append_be32(entry, size);
    append_be32(entry, offset);
    append_be32(entry, part.optional ? part_flag_optional : 0);
    entry.insert(entry.end(), variable.begin(), variable.end());
    return entry;
}

/// Fills the size and the digest in, and enciphers: from here on the device's code does the work.
void seal(bytes &image, const std::optional<std::string> &key)
{
    package record{};
    record.size = static_cast<uint32_t>(image.size());
    if (key) {
        const block_buffer buffer = load_blocks(image);
        if (cipher_package(&record, buffer.get(), key->c_str()) != 0)
            throw std::bad_alloc();
        image = store_blocks(buffer.get());
    }
    // The digest is taken of what a device will see: behind a package shorter than a block that is
    // zeros, which deciphering turns into key stream.
    const block_buffer buffer = load_blocks(image);
    if (key && cipher_package(&record, buffer.get(), key->c_str()) != 0)
        throw std::bad_alloc();
    digest_package(&record, buffer.get(), image.data() + package_checksum_offset);
}

/// The data of a part. Nothing but a file: a pipe that nobody writes to would be waited for without
/// a word.
bytes read_part_file(const manifest_part &part)
{
    std::error_code error;
    if (std::filesystem::exists(part.file, error) &&
        !std::filesystem::is_regular_file(part.file, error))
        throw failure(part.place + ": " + part.file.string() + ": not a regular file");
    try {
        return read_bytes(part.file, package_capacity);
    } catch (const failure &reason) {
        throw failure(part.place + ": " + reason.what());
    }
}

} // namespace

made_package make_package(const manifest &recipe, const std::optional<std::string> &key)
{
    std::vector<bytes> data;
    bytes table;
    size_t end = block_size;
    for (const manifest_part &part : recipe.parts) {
        data.push_back(read_part_file(part));
        const size_t size = data.back().size();
        const size_t offset = size > 0 ? round_up(end, block_size) : 0;
        const bytes entry = entry_bytes(part, size, offset);
        table.insert(table.end(), entry.begin(), entry.end());
        end = size > 0 ? offset + size : end;
        if (end > package_capacity)
            throw failure(part.place + ": " + part.file.string() + " would end at byte " +
                          std::to_string(end) + ", a package holds at most " +
                          std::to_string(package_capacity));
    }
    if (recipe.parts.size() < package_part_count)
        table.resize(table.size() + part_lookahead);
    const size_t table_end = package_header_size + table.size();
    if (table_end > block_size)
        throw failure(recipe.name + ": the part table would end at byte " +
                      std::to_string(table_end) + ", the first block at " +
                      std::to_string(block_size) + " (" + count_of(recipe.parts.size(), "part") +
                      ")");

    bytes image;
    append_be32(image, package_magic);
    append_be16(image, package_version);
    append_be16(image, key ? encryption_rc4 : encryption_none);
    append_be32(image, end > block_size ? end : table_end);
    image.resize(package_header_size); // the digest comes last
    image.insert(image.end(), table.begin(), table.end());
    for (const bytes &part : data) {
        if (part.empty())
            continue;
        image.resize(round_up(image.size(), block_size));
        image.insert(image.end(), part.begin(), part.end());
    }
    seal(image, key);
    return {std::move(image), std::move(data)};
}

} // namespace fwpkg
