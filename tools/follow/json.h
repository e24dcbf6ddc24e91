// SPDX-License-Identifier: GPL-2.0-or-later
//
// As much JSON as a line of a recording or a report needs (RFC 8259): written into a text of
// bounded length, read from flat objects. A JSON library takes several times the room of the whole
// program.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace follow {

/// Text that grows, of what is longest a frame of the terminal. What does not fit is left out.
struct text_buffer {
    std::array<char, 8192> data;
    size_t size = 0;

    [[nodiscard]] std::string_view view() const
    {
        return {data.data(), size};
    }
};

void append(text_buffer *to, std::string_view text);
[[gnu::format(printf, 2, 3)]] void append_format(text_buffer *to, const char *format, ...);

/// Appends `text` as a JSON string in its quotes, ASCII alone. What is not UTF-8 becomes U+FFFD.
void append_string(text_buffer *to, std::string_view text);

/// One member of an object that was read. Strings are without their escapes; `text` points into
/// the line, which was rewritten for that.
struct json_member {
    std::string_view name;
    std::string_view text; ///< a string's content, or the characters of another value
    bool is_string;
};

struct json_object {
    std::array<json_member, 8> members;
    size_t count;
};

/// Reads one object whose values are strings, numbers, true, false or null, with nothing but blanks
/// around it. `line` ends with a NUL and is rewritten. False for anything else, too many members
/// included; U+0000 is refused within strings.
bool read_object(char *line, json_object *object);

/// The member called `name`, or null.
const json_member *find_member(const json_object *object, std::string_view name);

/// The number that hexadecimal digits, and nothing else, make. False for anything else.
bool read_hex(std::string_view digits, uint32_t *value);

/// A decimal number of seconds ("1.25") in milliseconds. False for anything else, negative ones and
/// those beyond 10^11 included.
bool read_seconds(std::string_view text, int64_t *milliseconds);

} // namespace follow
