// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/device/device.h"

#include <algorithm>
#include <iterator>

#include "flash/trailer.h"
#include "package/package.h"
#include "tools/common/files.h"
#include "tools/common/key.h"
#include "tools/common/toml.h"

namespace {

constexpr std::string_view key_file_name = "VENDOR_KEY_FILE";
constexpr int64_t partition_maximum = INT64_C(1) << 32; // beyond any 32-bit size in a package

std::string text_of(toml_value value)
{
    value.subject = "the value of " + value.subject;
    std::string text = value.text();
    if (text.find_first_of(std::string_view("\n\0", 2)) != std::string::npos)
        value.fail(value.subject + " has a line break or a NUL");
    return text;
}

void read_partitions(const toml_value &table, device &to)
{
    for (toml_value value : table.members()) {
        const std::string &number = value.key;
        if (number.size() != 1 || number[0] < '0' || number[0] > '9')
            value.fail("partition " + value.subject + " is not one of 0 to 9");
        value.subject = "the size of partition " + number;
        to.partitions[number[0] - '0'] =
            static_cast<uint64_t>(value.integer(sizeof(partition_trailer), partition_maximum));
    }
}

void read_key(const toml_value &value, key_files keys, device &to)
{
    const std::string file = text_of(value);
    if (to.configuration.contains("VENDOR_KEY")) // which comes first, as keys are in order
        value.fail("both VENDOR_KEY and VENDOR_KEY_FILE");
    if (keys == key_files::left)
        return;
    const std::string key = read_key_file(std::filesystem::path(value.file).parent_path() / file);
    if (key.find('\n') != std::string::npos)
        value.fail("the key in " + file + " has a line break, which no configuration can hold");
    to.configuration["VENDOR_KEY"] = key;
}

void read_configuration(const toml_value &table, key_files keys, device &to)
{
    for (const toml_value &value : table.members()) {
        if (value.key.empty() || value.key[0] == '#' ||
            value.key.find_first_of(std::string_view("=\n\0", 3)) != std::string::npos)
            value.fail(value.subject + " cannot be a configuration key");
        if (value.key == key_file_name)
            read_key(value, keys, to);
        else
            to.configuration[value.key] = text_of(value);
    }
}

void read_requirements(const toml_value &table, device &to)
{
    for (const toml_value &value : table.members()) {
        if (std::ranges::find(part_type_names, value.key) == std::end(part_type_names))
            value.fail(value.subject + " is not the name of a part type");
        to.requirements[value.key] = text_of(value);
    }
}

void read_script(const toml_value &table, device_script &to)
{
    for (const toml_value &value : table.members()) {
        if (value.key == "present")
            to.present = value.truth();
        else if (value.key == "status")
            to.status = static_cast<int>(value.integer(0, 255));
        else if (value.key == "seconds")
            to.seconds = value.number(0, 86400);
        else
            value.fail_unknown(" in [script]");
    }
}

} // namespace

device parse_device(std::string_view text, const std::string &name, key_files keys)
{
    device made;
    for (const toml_value &table : parse_toml(text, name).members()) {
        if (table.key == "partitions")
            read_partitions(table, made);
        else if (table.key == "configuration")
            read_configuration(table, keys, made);
        else if (table.key == "requirements")
            read_requirements(table, made);
        else if (table.key == "script")
            read_script(table, made.script);
        else
            table.fail_unknown("");
    }
    return made;
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
