// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/common/near_word.h"

#include <algorithm>

namespace {

/// Letters to add, leave out, change or swap with the next to make one word of the other.
size_t distance(std::string_view a, std::string_view b)
{
    std::vector<std::vector<size_t>> edits(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); i++) {
        for (size_t j = 0; j <= b.size(); j++) {
            if (i == 0 || j == 0) {
                edits[i][j] = i + j;
                continue;
            }
            const bool same = a[i - 1] == b[j - 1];
            edits[i][j] = std::min(
                {edits[i - 1][j] + 1, edits[i][j - 1] + 1, edits[i - 1][j - 1] + (same ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                edits[i][j] = std::min(edits[i][j], edits[i - 2][j - 2] + 1);
        }
    }
    return edits[a.size()][b.size()];
}

} // namespace

std::string near_word_hint(std::string_view word, const std::vector<std::string> &known)
{
    constexpr size_t edit_limit = 2;
    constexpr size_t word_limit = 64; // the table grows with the square
    size_t best = edit_limit + 1;
    std::string hint;
    for (const std::string &candidate : known) {
        const size_t edits = word.size() > word_limit ? best : distance(word, candidate);
        if (edits < best && 2 * edits < candidate.size()) {
            best = edits;
            hint = " (did you mean \"" + candidate + "\"?)";
        }
    }
    return hint;
}
