// SPDX-License-Identifier: GPL-2.0-or-later
//
// Condition code and a feature set, as a package carries them.
#include "fuzz/support/fuzz.h"
#include "fuzz/support/world.h"
#include "package/conditions.h"

namespace {

int evaluate(const std::vector<uint8_t> &code, const uint8_t **end)
{
    return eval_conds(code.data(), static_cast<int>(code.size()), end, get_feature);
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::input input(data, size);
    fuzz::world world;
    world.fault = input.byte();
    const std::vector<uint8_t> features = input.bytes(input.byte());
    const std::vector<uint8_t> code = input.rest();
    _feature_set = features.data();
    _feature_set_size = static_cast<int>(features.size());
    {
        const fuzz::run run(&world);
        const uint8_t *end = nullptr;
        const int result = evaluate(code, &end);
        fuzz::require(result >= -1 && result <= 1, "a condition is met, not met or malformed");
        fuzz::require(end == nullptr || (end > code.data() && end <= code.data() + code.size() &&
                                         end[-1] == condition_close),
                      "the end is behind a closing byte");
        fuzz::require(fuzz::run::allocations() == 0, "an evaluation keeps no memory");
        world.fault = 0;
        if (end != nullptr) {
            const std::vector<uint8_t> reached(code.data(), end);
            const std::vector<uint8_t> unclosed(code.data(), end - 1);
            fuzz::require(evaluate(reached, nullptr) == evaluate(code, nullptr) &&
                              evaluate(unclosed, nullptr) == evaluate(code, nullptr),
                          "what follows the end, and the end itself, change nothing");
        }
    }
    _feature_set = nullptr;
    _feature_set_size = 0;
    return 0;
}
