// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/device/device.h"

#include <algorithm>
#include <iterator>

#include "flash/trailer.h"
#include "package/package.h"
#include "tools/common/files.h"
#include "tools/common/key.h"
#include "tools/common/printable.h"
#include "tools/common/toml_text.h"

namespace {

constexpr std::string_view key_file_name = "VENDOR_KEY_FILE";
constexpr uint64_t partition_maximum = UINT64_C(1) << 32; // beyond any 32-bit size in a package

/// Reads the tables; knows the file's name for its errors.
class reader {
public:
    reader(const std::string &name, key_files keys) : name_(name), keys_(keys) {}

    device read(const toml::table &root)
    {
        for (auto &&[key, node] : root) {
            if (key == "partitions")
                read_partitions(table(key, node));
            else if (key == "configuration")
                read_configuration(table(key, node));
            else if (key == "requirements")
                read_requirements(table(key, node));
            else if (key == "script")
                read_script(table(key, node));
            else
                fail(key.source(), "unknown key \"" + std::string(key.str()) + "\"");
        }
        return result_;
    }

    [[noreturn]] void fail(const toml::source_region &where, const std::string &what) const
    {
        throw failure(name_ + ":" + std::to_string(where.begin.line) + ": " + printable(what));
    }

private:
    const toml::table &table(const toml::key &key, const toml::node &node) const
    {
        if (!node.is_table())
            fail(node.source(), "\"" + std::string(key.str()) + "\" must be a table");
        return *node.as_table();
    }

    std::string text(const toml::key &key, const toml::node &node) const
    {
        const auto value = node.value_exact<std::string>();
        if (!value)
            fail(node.source(), "the value of \"" + std::string(key.str()) + "\" must be a text");
        if (value->find_first_of(std::string_view("\n\0", 2)) != std::string::npos)
            fail(node.source(),
                 "the value of \"" + std::string(key.str()) + "\" has a line break or a NUL");
        return *value;
    }

    void read_partitions(const toml::table &partitions)
    {
        for (auto &&[key, node] : partitions) {
            const std::string number(key.str());
            if (number.size() != 1 || number[0] < '0' || number[0] > '9')
                fail(key.source(), "partition \"" + number + "\" is not one of 0 to 9");
            const auto size = node.value_exact<int64_t>();
            if (!size || *size < static_cast<int64_t>(sizeof(partition_trailer)) ||
                static_cast<uint64_t>(*size) > partition_maximum)
                fail(node.source(),
                     "the size of partition " + number + " must be a number from 16 to 4294967296");
            result_.partitions[number[0] - '0'] = static_cast<uint64_t>(*size);
        }
    }

    void read_configuration(const toml::table &configuration)
    {
        for (auto &&[key, node] : configuration) {
            const std::string name(key.str());
            if (name.empty() || name[0] == '#' ||
                name.find_first_of(std::string_view("=\n\0", 3)) != std::string::npos)
                fail(key.source(), "\"" + name + "\" cannot be a configuration key");
            if (name == key_file_name)
                read_key(configuration, text(key, node), node.source());
            else
                result_.configuration[name] = text(key, node);
        }
    }

    void read_key(const toml::table &configuration, const std::string &file,
                  const toml::source_region &where)
    {
        if (configuration.contains("VENDOR_KEY"))
            fail(where, "both VENDOR_KEY and VENDOR_KEY_FILE");
        if (keys_ == key_files::left)
            return;
        const std::filesystem::path folder = std::filesystem::path(name_).parent_path();
        const std::string key = read_key_file(folder / file);
        if (key.find('\n') != std::string::npos)
            fail(where,
                 "the key in " + file + " has a line break, which no configuration can hold");
        result_.configuration["VENDOR_KEY"] = key;
    }

    void read_requirements(const toml::table &requirements)
    {
        for (auto &&[key, node] : requirements) {
            const std::string name(key.str());
            if (std::find(std::begin(part_type_names), std::end(part_type_names), name) ==
                std::end(part_type_names))
                fail(key.source(), "\"" + name + "\" is not the name of a part type");
            result_.requirements[name] = text(key, node);
        }
    }

    void read_script(const toml::table &script)
    {
        for (auto &&[key, node] : script) {
            if (key == "present") {
                const auto present = node.value_exact<bool>();
                if (!present)
                    fail(node.source(), "\"present\" must be true or false");
                result_.script.present = *present;
            } else if (key == "status") {
                const auto status = node.value_exact<int64_t>();
                if (!status || *status < 0 || *status > 255)
                    fail(node.source(), "\"status\" must be a number from 0 to 255");
                result_.script.status = static_cast<int>(*status);
            } else if (key == "seconds") {
                const auto seconds = node.value<double>();
                if (!node.is_number() || !seconds || !(*seconds >= 0 && *seconds <= 86400))
                    fail(node.source(), "\"seconds\" must be a number from 0 to 86400");
                result_.script.seconds = *seconds;
            } else {
                fail(key.source(), "unknown key \"" + std::string(key.str()) + "\" in [script]");
            }
        }
    }

    const std::string &name_;
    const key_files keys_;
    device result_;
};

} // namespace

device parse_device(std::string_view text, const std::string &name, key_files keys)
{
    reader description(name, keys);
    try {
        return description.read(parse_toml(text));
    } catch (const toml::parse_error &error) {
        description.fail(error.source(), std::string(error.description()));
    }
}

std::string read_description(const std::filesystem::path &path)
{
    constexpr size_t limit = 1024 * 1024; // of which a device's keys take a few hundred
    return read_text(path, limit);
}

device read_device(const std::filesystem::path &path, key_files keys)
{
    return parse_device(read_description(path), path.string(), keys);
}

std::string requirement_variable(const std::string &type_name)
{
    return type_name + "_features";
}

const std::string_view default_device_text = R"(# A simulated device.

[partitions] # /dev/fla<number> = size in bytes
2 = 4194304  # kernel
3 = 8388608  # base
4 = 8388608  # app

[configuration] # what the device's system configuration answers
WD = "5"        # the GPIO line of the watchdog
# VENDOR_KEY_FILE = "vendor.key"
# board = "rev2"

[requirements] # part type = condition on the features of a part of that type
# kernel = "ram:<=64"

[script]     # the script that stops the network
present = true
status = 0   # its exit status
seconds = 0  # how long it takes
)";
