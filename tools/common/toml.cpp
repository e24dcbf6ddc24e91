// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/common/toml.h"

#include <toml++/toml.h>

#include "tools/common/failure.h"
#include "tools/common/printable.h"

namespace {

const toml::node &node_of(const toml_value &value)
{
    return *static_cast<const toml::node *>(value.node.get());
}

toml_value inner_value(const toml_value &outer, std::string_view key, const toml::node &node,
                       const toml::source_region &where)
{
    const std::string name(key);
    return {name, "\"" + name + "\"", outer.file, where.begin.line, {outer.node, &node}};
}

std::string range_text(int64_t least, int64_t most)
{
    return "must be a number from " + std::to_string(least) + " to " + std::to_string(most);
}

} // namespace

std::string toml_value::place() const
{
    return file + ":" + std::to_string(line) + ": ";
}

void toml_value::fail(const std::string &what) const
{
    throw failure(place() + printable(what));
}

void toml_value::fail_unknown(const std::string &where) const
{
    fail("unknown key \"" + key + "\"" + where);
}

bool toml_value::truth() const
{
    const auto found = node_of(*this).value_exact<bool>();
    if (!found)
        fail(subject + " must be true or false");
    return *found;
}

int64_t toml_value::integer(int64_t least, int64_t most) const
{
    const auto found = node_of(*this).value_exact<int64_t>();
    if (!found)
        fail(subject + " " + range_text(least, most));
    if (*found < least || *found > most)
        fail(subject + " is " + std::to_string(*found) + ", " + range_text(least, most));
    return *found;
}

double toml_value::number(int64_t least, int64_t most) const
{
    const auto found = node_of(*this).value<double>();
    const auto from = static_cast<double>(least);
    if (!node_of(*this).is_number() || !found ||
        !(*found >= from && *found <= static_cast<double>(most)))
        fail(subject + " " + range_text(least, most));
    return *found;
}

std::string toml_value::text(const char *expected) const
{
    const auto found = node_of(*this).value_exact<std::string>();
    if (!found)
        fail(subject + " must be " + expected);
    return *found;
}

std::vector<toml_value> toml_value::members(const char *form) const
{
    const toml::table *table = node_of(*this).as_table();
    if (table == nullptr)
        fail(subject + " must be a table" + form);
    std::vector<toml_value> values;
    for (auto &&[name, inner] : *table)
        values.push_back(inner_value(*this, name.str(), inner, name.source()));
    return values;
}

std::vector<toml_value> toml_value::tables() const
{
    const toml::array *array = node_of(*this).as_array();
    if (array == nullptr || !array->is_homogeneous<toml::table>())
        fail(subject + " must be tables: [[" + key + "]]");
    std::vector<toml_value> values;
    for (const toml::node &inner : *array)
        values.push_back(inner_value(*this, "", inner, inner.source()));
    return values;
}

bool toml_value::is_integer() const
{
    return node_of(*this).is_integer();
}

toml_value parse_toml(std::string_view text, const std::string &file)
{
    constexpr int dot_limit = 10'000; // a third of what the usual stack bears
    toml_value value{"", "", file, 1, nullptr};
    for (int dots = 0; const char byte : text) {
        if (byte == '\n')
            value.line++;
        if (byte == '.' && ++dots > dot_limit)
            value.fail("more than 10000 dots in the file");
    }
    try {
        const auto table = std::make_shared<toml::table>(toml::parse(text));
        value.node = {table, static_cast<const toml::node *>(table.get())};
        return value;
    } catch (const toml::parse_error &error) {
        value.line = error.source().begin.line;
        value.fail(std::string(error.description()));
    }
}
