// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/common/json.h"

#include <algorithm>
#include <variant>

#include <nlohmann/json.hpp>

namespace {

using list = std::vector<json>;
using object_members = std::vector<json::member>;

} // namespace

struct json::content {
    std::variant<bool, int64_t, uint64_t, double, std::string, list, object_members> value;

    [[nodiscard]] static nlohmann::ordered_json converted(const json &from)
    {
        if (from.content_ == nullptr)
            return {};
        return std::visit([](const auto &held) { return converted(held); }, from.content_->value);
    }
    [[nodiscard]] static nlohmann::ordered_json converted(const object_members &members)
    {
        nlohmann::ordered_json made = nlohmann::ordered_json::object();
        for (const member &each : members)
            made[each.name] = converted(each.value);
        return made;
    }
    [[nodiscard]] static nlohmann::ordered_json converted(const list &elements)
    {
        nlohmann::ordered_json made = nlohmann::ordered_json::array();
        for (const json &each : elements)
            made.push_back(converted(each));
        return made;
    }
    [[nodiscard]] static nlohmann::ordered_json converted(const auto &plain)
    {
        return plain;
    }
};

json::json() = default;
json::json(content value) : content_(std::make_unique<content>(std::move(value))) {}
json::json(bool value) : json(content{value}) {}
json::json(int64_t value) : json(content{value}) {}
json::json(uint64_t value) : json(content{value}) {}
json::json(double value) : json(content{value}) {}
json::json(const char *text) : json(content{std::string(text)}) {}
json::json(const std::string &text) : json(content{text}) {}
json::json(std::initializer_list<member> members) : json(content{object_members(members)}) {}
json::json(const json &other)
    : content_(other.content_ ? std::make_unique<content>(*other.content_) : nullptr)
{
}
json::json(json &&other) noexcept = default;
json &json::operator=(json &&other) noexcept = default;
json::~json() = default;

json &json::operator=(const json &other)
{
    return *this = json(other);
}

json json::array(std::vector<json> elements)
{
    return json(content{std::move(elements)});
}

json json::object()
{
    return json(content{object_members()});
}

json &json::operator[](const std::string &name)
{
    if (content_ == nullptr)
        *this = object();
    auto &members = std::get<object_members>(content_->value);
    const auto found = std::ranges::find(members, name, &member::name);
    if (found != members.end())
        return found->value;
    members.push_back({name, {}});
    return members.back().value;
}

void json::push_back(json element)
{
    std::get<list>(content_->value).push_back(std::move(element));
}

void json::merge(const json &other)
{
    const auto is_object = [](const json &value) {
        return value.content_ && std::holds_alternative<object_members>(value.content_->value);
    };
    for (const member &each : std::get<object_members>(other.content_->value)) {
        json &mine = (*this)[each.name];
        if (is_object(mine) && is_object(each.value))
            mine.merge(each.value);
        else
            mine = each.value;
    }
}

json json::sorted() const
{
    json made = *this;
    if (made.content_ == nullptr)
        return made;
    if (auto *members = std::get_if<object_members>(&made.content_->value)) {
        std::ranges::sort(*members, {}, &member::name);
        for (member &each : *members)
            each.value = each.value.sorted();
    } else if (auto *elements = std::get_if<list>(&made.content_->value)) {
        for (json &each : *elements)
            each = each.sorted();
    }
    return made;
}

std::string json::dump(int indent, bool ascii) const
{
    return content::converted(*this).dump(indent, ' ', ascii);
}
