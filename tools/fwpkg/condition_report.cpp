// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/condition_report.h"

#include <cstdio>
#include <optional>
#include <span>

#include "package/conditions.h"
#include "tools/fwpkg/check_condition.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

const std::map<std::string, std::string> *given; // of the look-up function

const char *given_value(const char *name)
{
    const auto found = given->find(name);
    return found == given->end() ? nullptr : found->second.c_str();
}

std::string position_text(int position)
{
    char text[16];
    snprintf(text, sizeof text, "%5d  ", position);
    return text;
}

std::string comparison_line(const explained_item &one)
{
    return item_text(one.item) + "  " + (is_numeric(one.item) ? "as numbers" : "as texts") +
           ", with " + (one.actual ? "\"" + printable(*one.actual) + "\"" : "nothing") + ": " +
           (one.holds ? "holds" : "does not hold");
}

} // namespace

condition_report explain_condition(const std::string &text,
                                   const std::map<std::string, std::string> &values)
{
    given = &values;
    condition_report report;
    report.code = compile_condition(text, "condition");
    const std::vector<condition_item> items = list_condition(report.code);
    report.warnings = condition_warnings(items);
    const size_t reached = reached_items(items);
    for (const condition_item &item : items) {
        explained_item one{item, {}};
        if (item.comparison) {
            if (const char *value = given_value(item.name.c_str()); value != nullptr)
                one.actual = value;
            one.holds = comparison_holds(item, one.actual);
            if (report.items.size() < reached)
                for (const std::string &warning : value_warnings(item, one.actual))
                    report.warnings.push_back(warning);
        }
        report.items.push_back(std::move(one));
    }
    report.holds =
        eval_conditions(report.code.data(), static_cast<int>(report.code.size()), given_value) != 0;
    return report;
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

std::string condition_text_report(const condition_report &report)
{
    std::string text = count_of(report.code.size(), "byte") + ": " + hex(report.code) + "\n";
    for (const explained_item &one : report.items)
        text += position_text(one.item.position) +
                (one.item.comparison ? comparison_line(one) : operator_name(one.item.code)) + "\n";
    return text + "result: " + (report.holds ? "holds" : "does not hold") + "\n";
}

} // namespace fwpkg
