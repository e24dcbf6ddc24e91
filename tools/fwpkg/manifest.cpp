// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/manifest.h"

#include <algorithm>
#include <iterator>

#include "package/package.h"
#include "tools/common/files.h"
#include "tools/common/toml_text.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

constexpr size_t manifest_limit = 1024 * 1024;

/// Reads the tables; knows the file's name for its errors, and its folder.
class reader {
public:
    explicit reader(const std::filesystem::path &path) : path_(path)
    {
        result_.name = path.string();
    }

    manifest read(const toml::table &root)
    {
        for (auto &&[key, node] : root) {
            if (key == "package")
                read_package(key, node);
            else if (key == "part")
                read_parts(node);
            else
                unknown(key, "the manifest");
        }
        if (result_.parts.empty())
            throw failure(result_.name + ": no [[part]]");
        return std::move(result_);
    }

    [[noreturn]] void fail(const toml::source_region &where, const std::string &what) const
    {
        throw failure(result_.name + ":" + std::to_string(where.begin.line) + ": " +
                      printable(what));
    }

private:
    [[noreturn]] void unknown(const toml::key &key, const std::string &where) const
    {
        fail(key.source(), "unknown key \"" + std::string(key.str()) + "\" in " + where);
    }

    template<typename type>
    type value(const toml::key &key, const toml::node &node, const char *expected) const
    {
        const auto found = node.value_exact<type>();
        if (!found)
            fail(node.source(), "\"" + std::string(key.str()) + "\" must be " + expected);
        return *found;
    }

    int64_t number(const toml::key &key, const toml::node &node, int64_t maximum) const
    {
        const std::string expected = "a number from 0 to " + std::to_string(maximum);
        const auto found = value<int64_t>(key, node, expected.c_str());
        if (found < 0 || found > maximum)
            fail(node.source(), "\"" + std::string(key.str()) + "\" is " + std::to_string(found) +
                                    ", must be " + expected);
        return found;
    }

    std::string text(const toml::key &key, const toml::node &node) const
    {
        auto found = value<std::string>(key, node, "a text");
        if (found.find('\0') != std::string::npos)
            fail(node.source(), "\"" + std::string(key.str()) + "\" has a NUL");
        return found;
    }

    void read_package(const toml::key &package, const toml::node &node)
    {
        if (!node.is_table())
            fail(package.source(), "\"package\" must be a table: [package]");
        for (auto &&[key, entry] : *node.as_table()) {
            if (key != "encrypt")
                unknown(key, "[package]");
            result_.encrypt = value<bool>(key, entry, "true or false");
        }
    }

    void read_parts(const toml::node &node)
    {
        const toml::array *parts = node.as_array();
        if (parts == nullptr || !parts->is_homogeneous<toml::table>())
            fail(node.source(), "\"part\" must be tables: [[part]]");
        if (parts->size() > package_part_count)
            fail((*parts)[package_part_count].source(), std::to_string(parts->size()) +
                                                            " parts, a package holds at most " +
                                                            std::to_string(package_part_count));
        for (const toml::node &part : *parts)
            read_part_table(*part.as_table());
    }

    void read_part_table(const toml::table &table)
    {
        const std::string name = "part " + std::to_string(result_.parts.size());
        manifest_part part;
        part.place = result_.name + ":" + std::to_string(table.source().begin.line) + ": " + name;
        for (auto &&[key, node] : table) {
            if (key == "type")
                part.type = type(key, node);
            else if (key == "file")
                part.file = file(text(key, node));
            else if (key == "actual_size")
                part.actual_size = static_cast<uint32_t>(number(key, node, UINT32_MAX));
            else if (key == "optional")
                part.optional = value<bool>(key, node, "true or false");
            else if (key == "compress")
                part.compress = static_cast<uint8_t>(number(key, node, UINT8_MAX));
            else if (key == "conditions")
                part.conditions = text(key, node);
            else if (key == "features")
                part.features = features(key, node);
            else
                unknown(key, name);
        }
        for (const char *needed : {"type", "file"}) {
            if (!table.contains(needed))
                throw failure(part.place + " has no \"" + needed + "\"");
        }
        result_.parts.push_back(std::move(part));
    }

    std::filesystem::path file(const std::string &name) const
    {
        const std::filesystem::path path = path_.parent_path() / name;
        return path == "-" ? std::filesystem::path("./-") : path; // a file, no standard stream
    }

    int type(const toml::key &key, const toml::node &node) const
    {
        if (node.is_integer())
            return static_cast<int>(number(key, node, UINT8_MAX));
        const auto name = value<std::string>(key, node, "a part type's name or a number");
        const auto *const found =
            std::find(std::begin(part_type_names), std::end(part_type_names), name);
        if (found == std::end(part_type_names))
            fail(node.source(), "\"" + name + "\" is not the name of a part type");
        return static_cast<int>(found - std::begin(part_type_names));
    }

    std::map<std::string, std::string> features(const toml::key &key, const toml::node &node) const
    {
        if (!node.is_table())
            fail(node.source(), "\"" + std::string(key.str()) + "\" must be a table");
        std::map<std::string, std::string> result;
        for (auto &&[name, feature] : *node.as_table()) {
            const std::string plain(name.str());
            if (plain.empty() || plain.find('\0') != std::string::npos)
                fail(name.source(), "a feature's name is empty or has a NUL");
            result[plain] = text(name, feature);
        }
        return result;
    }

    const std::filesystem::path &path_;
    manifest result_;
};

} // namespace

manifest read_manifest(const std::filesystem::path &path)
{
    const std::string text = read_text(path, manifest_limit);
    reader tables(path);
    try {
        return tables.read(parse_toml(text));
    } catch (const toml::parse_error &error) {
        tables.fail(error.source(), std::string(error.description()));
    }
}

} // namespace fwpkg
