// SPDX-License-Identifier: GPL-2.0-or-later
//
// Condition texts: the compiler, what it compiles, and a device's requirement in its environment.
#include "fuzz/support/fuzz.h"
#include "fuzz/support/world.h"
#include "package/conditions.h"
#include <unistd.h>

namespace {

const char *look_up(const char *name)
{
    return name[0] == 'n' ? nullptr : name;
}

void compile(const std::string &text, int capacity)
{
    std::vector<char> copy = fuzz::exact_text(text);
    std::vector<uint8_t> code(static_cast<size_t>(capacity));
    const int length = build_conditions(copy.data(), code.data(), capacity);
    fuzz::require(length == -1 || (length >= 1 && length <= capacity),
                  "the code fits its capacity, or there is none");
    if (length < 0)
        return;
    code.resize(static_cast<size_t>(length));
    fuzz::require(code.back() == condition_close, "code ends with the closing byte");
    fuzz::require(eval_conditions(code.data(), length, look_up) >= 0, "compiled code is complete");
}

// Twice, since the first evaluation uses the text up.
void require_of_features(const std::string &text, unsigned type, std::vector<uint8_t> features)
{
    std::vector<char> variable = fuzz::exact_text("kernel_features=" + text);
    char *variables[] = {variable.data(), nullptr};
    char **before = environ;
    environ = variables;
    for (int time = 0; time < 2; time++) {
        const int result = eval_features(type, features.data(), static_cast<int>(features.size()));
        fuzz::require(result == 0 || result == 1, "compiled code is never malformed");
        fuzz::require(_feature_set == nullptr || result == 0, "a set is left by a refusal alone");
    }
    environ = before;
    _feature_set = nullptr;
    _feature_set_size = 0;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::input input(data, size);
    const unsigned type = input.byte();
    const auto capacity = static_cast<int>(input.word() % 2048);
    const std::string text = input.text();
    const std::vector<uint8_t> features = input.rest();
    fuzz::world world;
    const fuzz::run run(&world);
    compile(text, capacity);
    compile(text, 8192);
    require_of_features(text, type, features);
    fuzz::require(fuzz::run::allocations() == 0, "nothing is kept");
    return 0;
}
