// SPDX-License-Identifier: GPL-2.0-or-later
//
// Runs a fuzz target over every file of the folders that are its arguments. A finding ends it by a
// signal; a folder without files is a failure, so that a lost corpus is noticed.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <unistd.h>

#include "fuzz/support/fuzz.h"

int main(int count, char **arguments)
{
    LLVMFuzzerInitialize(&count, &arguments);
    for (int argument = 1; argument < count; argument++) {
        const std::set<std::filesystem::path> files(
            std::filesystem::directory_iterator(arguments[argument]), {});
        dprintf(STDOUT_FILENO, "%s: %zu files\n", arguments[argument], files.size());
        fuzz::require(!files.empty(), "there are inputs");
        for (const std::filesystem::path &path : files) {
            dprintf(STDOUT_FILENO, "%s\n", path.c_str());
            std::ifstream file(path, std::ios::binary);
            fuzz::require(file.good(), "the file can be read");
            // In memory of exactly its size: the sanitizer then sees a read beyond the input.
            const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        }
    }
    return count > 1 ? 0 : 1;
}
