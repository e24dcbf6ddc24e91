// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/manifest.h"

#include <algorithm>
#include <iterator>

#include "package/package.h"
#include "tools/common/files.h"
#include "tools/common/toml.h"

namespace fwpkg {
namespace {

std::string text_of(const toml_value &value)
{
    std::string text = value.text();
    if (text.find('\0') != std::string::npos)
        value.fail(value.subject + " has a NUL");
    return text;
}

/// `name` as it can be opened, from the manifest at `manifest`.
std::filesystem::path file_of(const std::filesystem::path &manifest, const std::string &name)
{
    const std::filesystem::path path = manifest.parent_path() / name;
    return path == "-" ? std::filesystem::path("./-") : path; // a file, no standard stream
}

int type_of(const toml_value &value)
{
    if (value.is_integer())
        return static_cast<int>(value.integer(0, UINT8_MAX));
    const std::string name = value.text("a part type's name or a number");
    const auto *const found =
        std::find(std::begin(part_type_names), std::end(part_type_names), name);
    if (found == std::end(part_type_names))
        value.fail("\"" + name + "\" is not the name of a part type");
    return static_cast<int>(found - std::begin(part_type_names));
}

std::map<std::string, std::string> features_of(const toml_value &table)
{
    std::map<std::string, std::string> features;
    for (const toml_value &value : table.members()) {
        if (value.key.empty() || value.key.find('\0') != std::string::npos)
            value.fail("a feature's name is empty or has a NUL");
        features[value.key] = text_of(value);
    }
    return features;
}

manifest_part read_part(const toml_value &table, const std::string &name)
{
    manifest_part part;
    part.place = table.place() + name;
    const std::vector<toml_value> values = table.members();
    for (const toml_value &value : values) {
        if (value.key == "type")
            part.type = type_of(value);
        else if (value.key == "file")
            part.file = file_of(table.file, text_of(value));
        else if (value.key == "actual_size")
            part.actual_size = static_cast<uint32_t>(value.integer(0, UINT32_MAX));
        else if (value.key == "optional")
            part.optional = value.truth();
        else if (value.key == "compress")
            part.compress = static_cast<uint8_t>(value.integer(0, UINT8_MAX));
        else if (value.key == "conditions")
            part.conditions = text_of(value);
        else if (value.key == "features")
            part.features = features_of(value);
        else
            value.fail_unknown(" in " + name);
    }
    for (const char *needed : {"type", "file"})
        if (std::ranges::find(values, needed, &toml_value::key) == values.end())
            throw failure(part.place + " has no \"" + needed + "\"");
    return part;
}

void read_parts(const toml_value &array, manifest &to)
{
    const std::vector<toml_value> tables = array.tables();
    if (tables.size() > package_part_count)
        tables[package_part_count].fail(std::to_string(tables.size()) +
                                        " parts, a package holds at most " +
                                        std::to_string(package_part_count));
    for (const toml_value &table : tables)
        to.parts.push_back(read_part(table, "part " + std::to_string(to.parts.size())));
}

} // namespace

manifest read_manifest(const std::filesystem::path &path)
{
    constexpr size_t limit = 1024 * 1024;
    manifest made;
    made.name = path.string();
    for (const toml_value &value : parse_toml(read_text(path, limit), made.name).members()) {
        if (value.key == "part") {
            read_parts(value, made);
            continue;
        }
        if (value.key != "package")
            value.fail_unknown(" in the manifest");
        for (const toml_value &setting : value.members(": [package]")) {
            if (setting.key != "encrypt")
                setting.fail_unknown(" in [package]");
            made.encrypt = setting.truth();
        }
    }
    if (made.parts.empty())
        throw failure(made.name + ": no [[part]]");
    return made;
}

} // namespace fwpkg
