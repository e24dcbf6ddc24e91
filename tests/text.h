// SPDX-License-Identifier: GPL-2.0-or-later
//
// Changes to texts. Without <regex>, which takes each unit two seconds of compiling.
#pragma once

#include <string>
#include <string_view>

/// TEXT with BY in place of each WORD.
inline std::string replaced(std::string text, std::string_view word, std::string_view by)
{
    for (size_t at = 0; (at = text.find(word, at)) != std::string::npos; at += by.size())
        text.replace(at, word.size(), by);
    return text;
}
