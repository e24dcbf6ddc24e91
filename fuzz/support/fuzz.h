// SPDX-License-Identifier: GPL-2.0-or-later
//
// What every fuzz target is made of: the entry point, the input taken apart, and a run in a world
// that the input decides (support/world.h).
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

/// Both are libFuzzer's interface; every target defines the first, support/fuzz.cpp the second.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" int LLVMFuzzerInitialize(int *count, char ***arguments);

namespace fuzz {

/// Ends the process, as a finding, with `what` on the real standard error unless `holds`.
void require(bool holds, const char *what);

/// The input from front to back. What is missing at its end is 0 or empty.
class input {
public:
    input(const uint8_t *data, size_t size) : left_(data, size) {}
    uint8_t byte()
    {
        if (left_.empty())
            return 0;
        const uint8_t taken = left_[0];
        left_ = left_.subspan(1);
        return taken;
    }
    unsigned word()
    {
        const unsigned high = byte();
        return high << 8 | byte();
    }
    std::vector<uint8_t> bytes(size_t size)
    {
        const auto taken = left_.first(std::min(size, left_.size()));
        left_ = left_.subspan(taken.size());
        return {taken.data(), taken.data() + taken.size()}; // by pointers: as one block
    }
    /// Up to the next NUL, which is taken too.
    std::string text()
    {
        std::string result;
        for (uint8_t next = byte(); next != 0; next = byte())
            result.push_back(static_cast<char>(next));
        return result;
    }
    std::vector<uint8_t> rest()
    {
        return bytes(left_.size());
    }

private:
    std::span<const uint8_t> left_;
};

/// A writable copy of exactly the size of a text and its NUL, so that the address sanitizer sees
/// every step beyond it. An embedded NUL ends it.
inline std::vector<char> exact_text(const std::string &text)
{
    std::vector<char> copy(strlen(text.c_str()) + 1);
    memcpy(copy.data(), text.c_str(), copy.size());
    return copy;
}

} // namespace fuzz
