// SPDX-License-Identifier: GPL-2.0-or-later
//
// A JSON value that is put together and printed. Members stand in the order in which they are
// added; text is UTF-8.
//
//     const json document = {{"format", 1}, {"parts", list}};
//     puts(document.dump(2).c_str());
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class json {
public:
    struct member;

    json(); ///< null
    json(bool value);
    json(int64_t value);
    json(uint64_t value);
    json(double value);
    json(const char *text);
    json(const std::string &text);
    json(std::initializer_list<member> members); ///< an object
    json(std::signed_integral auto value) : json(int64_t{value}) {}
    json(std::unsigned_integral auto value) : json(uint64_t{value}) {}
    template<typename type>
    json(const std::vector<type> &elements) : json(array({elements.begin(), elements.end()}))
    {
    }
    template<typename type>
    json(const std::optional<type> &value) : json(value ? json(*value) : json())
    {
    }
    json(const json &other);
    json(json &&other) noexcept;
    json &operator=(const json &other);
    json &operator=(json &&other) noexcept;
    ~json();

    static json array(std::vector<json> elements = {});
    /// The elements of `all` through `one`.
    template<typename list, typename function> static json array_of(const list &all, function one)
    {
        json made = array();
        for (const auto &each : all)
            made.push_back(one(each));
        return made;
    }
    static json object();

    /// The member `name`, which is added as null where there is none. What this is called for is an
    /// object, or null and becomes one.
    json &operator[](const std::string &name);

    /// Appends to an array.
    void push_back(json element);

    /// Adds the members of the object `other` to this one: objects that both have are merged,
    /// anything else is replaced.
    void merge(const json &other);

    /// The same with all members in the order of their names, at every depth.
    [[nodiscard]] json sorted() const;

    /// As text: on one line where `indent` is below 0; with `ascii` every other character is
    /// escaped. Throws an exception of the library for text that is not UTF-8.
    [[nodiscard]] std::string dump(int indent = -1, bool ascii = false) const;

private:
    struct content;
    explicit json(content value);

    std::unique_ptr<content> content_; ///< none: null
};

struct json::member {
    std::string name;
    json value;
};
