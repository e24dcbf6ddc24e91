// SPDX-License-Identifier: GPL-2.0-or-later
//
// The texts of the HTTP client: a block of headers, form text, and escaping.
#include <cstring>

#include "fuzz/support/fuzz.h"
#include "fuzz/support/world.h"
#include "httpc/extra_texts.h"
#include "httpc/httpc_client.h"

namespace {

void parse_headers(const std::string &text)
{
    std::vector<char> exact = fuzz::exact_text(text);
    httpc_client client = {};
    _httpc_parse_headers(&client, exact.data());
    for (const httpc_var *node = client.headers.first; node != nullptr; node = node->next)
        fuzz::require(strlen(node->name) < 32 && strlen(node->value) < 64, "both are cut");
    _httpc_free_vars(&client.headers);
    fuzz::require(fuzz::run::allocations() == 0, "a list is freed whole");
}

void decode(const std::string &text)
{
    std::vector<char> exact = fuzz::exact_text(text);
    std::vector<char> out(strlen(exact.data()) + 1);
    _httpc_parse_content(out.data(), exact.data());
}

void encode(const std::string &name, const std::string &value, int size)
{
    std::vector<char> exact_name = fuzz::exact_text(name);
    std::vector<char> exact_value = fuzz::exact_text(value);
    const auto room = static_cast<size_t>(size);
    std::vector<char> out(room);
    const int length = _encode_string(exact_name.data(), out.data(), size);
    fuzz::require(length >= -1 && (length < size || length == 0), "an escaped text fits");
    for (int i = 0; i < length; i++)
        fuzz::require(strchr("%+", out[static_cast<size_t>(i)]) != nullptr ||
                          _safe_char(out[static_cast<size_t>(i)]) == 1,
                      "an escaped text is safe");
    std::vector<char> pair(2 * room + 1);
    _encode_content(exact_name.data(), exact_value.data(), pair.data(), size);
    std::vector<char> pairs(room + 1); // the last byte is not the function's
    for (int time = 0; time < 3 && size > 0; time++) {
        const auto before = static_cast<int>(strlen(pairs.data()));
        const int now = _encode_contents(exact_name.data(), exact_value.data(), pairs.data(), size);
        fuzz::require(now == -1 ? static_cast<int>(strlen(pairs.data())) == before
                                : now > before && now < size &&
                                      static_cast<int>(strlen(pairs.data())) == now,
                      "a pair is appended whole or not at all");
    }
    fuzz::require(pairs.back() == '\0', "nothing is written behind the buffer");
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::input input(data, size);
    const auto room = static_cast<int>(input.word() % 1024);
    const std::string first = input.text();
    const std::string second = input.text();
    fuzz::world world;
    const fuzz::run run(&world);
    parse_headers(first);
    decode(first);
    encode(first, second, room);
    return 0;
}
