// SPDX-License-Identifier: GPL-2.0-or-later
//
// A package that somebody else made, as fwpkg shows it, and its conditions as text.
#include "fuzz/support/fuzz.h"
#include "tools/common/printable.h"
#include "tools/fwpkg/condition_code.h"
#include "tools/fwpkg/json_report.h"
#include "tools/fwpkg/package_file.h"
#include "tools/fwpkg/show_report.h"

namespace {

bool is_text(std::string text)
{
    std::erase(text, '\n');
    return is_printable(text);
}

void explain(const std::vector<uint8_t> &code)
{
    const fwpkg::condition_text condition = fwpkg::decompile_condition(code);
    fuzz::require(is_printable(condition.text), "a condition can be shown");
    if (condition.exact && !code.empty())
        fuzz::require(fwpkg::compile_condition(condition.text, "") == code,
                      "an exact text compiles to the same code");
    const auto items = fwpkg::list_condition(code);
    fuzz::require(fwpkg::reached_items(items) <= items.size(), "no more is reached than is there");
    for (const fwpkg::condition_item &item : items) {
        fuzz::require(is_printable(fwpkg::item_text(item)), "an item can be shown");
        if (item.comparison && item.complete)
            fwpkg::comparison_holds(item, item.value);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::input input(data, size);
    explain(input.bytes(input.byte()));
    std::vector<uint8_t> bytes = input.rest();
    for (const std::optional<std::string> &key : {std::optional<std::string>{}, {"secret"}}) {
        const fwpkg::package_file file = fwpkg::open_package(bytes, key);
        fuzz::require(is_text(fwpkg::package_text(file, "name", "")), "a package can be shown");
        fwpkg::show_json(file, {"name", bytes.size(), ""});
    }
    return 0;
}
