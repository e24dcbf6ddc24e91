// SPDX-License-Identifier: GPL-2.0-or-later
//
// Runs a fuzz target over every file of the folders that are its arguments. A finding ends it by a
// signal; a folder without files is a failure, so that a lost corpus is noticed.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <unistd.h>

#include "fuzz/support/fuzz.h"

int main(int count, char **arguments)
{
    std::vector<std::filesystem::path> files;
    std::error_code error;
    bool complete = count > 1;
    for (int argument = 1; argument < count; argument++) {
        const size_t before = files.size();
        for (const auto &entry : std::filesystem::directory_iterator(arguments[argument], error))
            files.push_back(entry.path());
        complete = complete && files.size() > before;
    }
    std::sort(files.begin(), files.end());
    LLVMFuzzerInitialize(&count, &arguments);
    for (const auto &path : files) {
        std::ifstream file(path, std::ios::binary);
        // In memory of exactly its size: the sanitizer then sees a read beyond the input.
        const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
        dprintf(STDOUT_FILENO, "%s\n", path.c_str());
        fuzz::require(file.good() || file.eof(), "the file can be read");
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    dprintf(STDOUT_FILENO, "%zu files\n", files.size());
    return complete ? 0 : 1;
}
