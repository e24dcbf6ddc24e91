// SPDX-License-Identifier: GPL-2.0-or-later
//
// TOML files that somebody else wrote, read value by value. What is wrong with one is thrown as a
// failure, "FILE:LINE: what is wrong", made safe for a terminal.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// One value of a file. It keeps the whole file alive.
struct toml_value {
    std::string key;     ///< its name in its table; empty for the file itself and in an array
    std::string subject; ///< how failures call it: the key in quotes, unless the reader changes it
    std::string file;
    int64_t line;
    std::shared_ptr<const void> node; ///< the library's

    [[nodiscard]] std::string place() const; ///< "FILE:LINE: "
    [[noreturn]] void fail(const std::string &what) const;
    /// For a key that the reader does not know; `where` is empty or begins with a blank.
    [[noreturn]] void fail_unknown(const std::string &where) const;

    /// Each fails for a value of another type or out of the range.
    [[nodiscard]] bool truth() const;
    [[nodiscard]] int64_t integer(int64_t least, int64_t most) const;
    [[nodiscard]] double number(int64_t least, int64_t most) const; ///< may be an integer, too
    [[nodiscard]] std::string text(const char *expected = "a text") const;

    /// Those of a table in the order of their keys. `form` is how such a table is written.
    [[nodiscard]] std::vector<toml_value> members(const char *form = "") const;
    /// Those of an array that has nothing but tables.
    [[nodiscard]] std::vector<toml_value> tables() const;
    [[nodiscard]] bool is_integer() const;
};

/// The table that `text` is; `file` is its name. Fails also for a text with more dots than any file
/// needs: the library nests a table for each dot of a key, and takes them apart by recursion until
/// the stack ends.
toml_value parse_toml(std::string_view text, const std::string &file);
