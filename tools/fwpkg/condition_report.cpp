// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/condition_report.h"

#include <cstdio>
#include <optional>
#include <span>

#include "package/conditions.h"
#include "tools/fwpkg/condition_code.h"
#include "tools/fwpkg/text.h"
#include "tools/fwpkg/traps.h"

namespace fwpkg {
namespace {

const std::map<std::string, std::string> *given; // of the look-up function

const char *given_value(const char *name)
{
    const auto found = given->find(name);
    return found == given->end() ? nullptr : found->second.c_str();
}

const char *operator_name(uint8_t code)
{
    switch (code) {
    case condition_and_not:
        return "and not";
    case condition_or:
        return "or";
    case condition_and:
        return "and";
    case condition_open:
        return "open group";
    default:
        return "close group, or end";
    }
}

std::string position_text(int position)
{
    char text[16];
    snprintf(text, sizeof text, "%5d  ", position);
    return text;
}

std::string comparison_line(const condition_item &item, const std::optional<std::string> &actual)
{
    return item_text(item) + "  " + (is_numeric(item) ? "as numbers" : "as texts") + ", with " +
           (actual ? "\"" + printable(*actual) + "\"" : "nothing") + ": " +
           (comparison_holds(item, actual) ? "holds" : "does not hold") + "\n";
}

} // namespace

condition_report explain_condition(const std::string &text,
                                   const std::map<std::string, std::string> &values)
{
    given = &values;
    const std::vector<uint8_t> code = compile_condition(text, "condition");
    const std::vector<condition_item> items = list_condition(code);
    condition_report report;
    report.listing = count_of(code.size(), "byte") + ": " + hex(code) + "\n";
    report.traps = condition_traps(items);
    const size_t reached = reached_items(items);
    for (const condition_item &item : items) {
        report.listing += position_text(item.position);
        if (!item.comparison) {
            report.listing += operator_name(item.code) + std::string("\n");
            continue;
        }
        const char *value = given_value(item.name.c_str());
        const auto actual = value == nullptr ? std::nullopt : std::optional<std::string>(value);
        report.listing += comparison_line(item, actual);
        if (static_cast<size_t>(&item - items.data()) >= reached)
            continue;
        for (const std::string &trap : value_traps(item, actual))
            report.traps.push_back(trap);
    }
    const int result = eval_conditions(code.data(), static_cast<int>(code.size()), given_value);
    report.listing += std::string("result: ") + (result != 0 ? "holds" : "does not hold") + "\n";
    return report;
}

} // namespace fwpkg
