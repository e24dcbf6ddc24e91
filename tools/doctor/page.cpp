// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/doctor/page.h"

#include "tools/common/json.h"
#include "tools/doctor/diagnosis.h"
#include "tools/doctor/message_row.h"

namespace doctor {

namespace {

constexpr char introduction[] =
    R"(<!-- SPDX-License-Identifier: GPL-2.0-or-later -->
<!-- Made by scripts/check-messages --write from tools/doctor/messages*.cpp: change it there. -->
# After a failure

`upgrade` says little, and says it on standard error. `fwdoctor log FILE` reads that and names the
cause, the remedies and what is left on the device; `fwdoctor flash DUMP... --package PKG` says what
the partitions hold. Both are in the manual page fwdoctor(1). This page is the table that they work
from: every message of the program, what it means and what to do.

In the messages `%s` stands for a text, `%d` and `%x` for a number; in the meanings "..." for what the
message says there. Lines with the same beginning are told apart by their texts: the row that says most
is meant.

First of all:

1. Keep the whole of standard error; [upgrade-logged](../examples/device/upgrade-logged) does that on
   the device. `fwdoctor log --redact` takes key and password out before it is mailed.
2. Exit status 1: no partition was touched. Behind "bad package!" the network is stopped.
   Exit status 2, or a run that was cut off while it wrote: do not start the device from the
   partitions before `fwdoctor flash` or a boot loader that checks the CRC
   ([power-cuts.md](power-cuts.md)) has judged them.
3. Running the upgrade again with the same package is always safe: it keeps nothing from the last
   time and writes everything anew.
)";

/// `text` in a cell of a table.
std::string cell(std::string_view text)
{
    std::string made;
    for (size_t at = 0; at < text.size(); at++) {
        if (text[at] == '{' && text.substr(at).size() > 2 && text[at + 2] == '}') {
            made += "...";
            at += 2;
        } else if (text[at] == '|' || text[at] == '<') {
            made += std::string("\\") + text[at];
        } else {
            made += text[at];
        }
    }
    return made;
}

std::string remedies_cell(const char *remedies)
{
    std::string text;
    const std::vector<std::string> lines = split_lines(remedies);
    for (size_t index = 0; index < lines.size(); index++)
        text += (index == 0 ? "" : "<br>") +
                (lines.size() > 1 ? std::to_string(index + 1) + ". " : "") + cell(lines[index]);
    return text;
}

/// A format as it is shown: without the newlines at its end, those within it as a blank.
std::string shown(std::string_view format)
{
    while (format.ends_with('\n'))
        format.remove_suffix(1);
    std::string text(format);
    for (char &byte : text)
        byte = byte == '\n' ? ' ' : byte;
    while (text.ends_with(' '))
        text.pop_back();
    return text;
}

} // namespace

std::string page_text()
{
    std::string text = introduction;
    for (const message_section &section : message_sections()) {
        text += std::string("\n## ") + section.title + "\n\n| Message | Means | What to do |\n" +
                "| --- | --- | --- |\n";
        for (const message_row &row : section.rows)
            text += "| `" + shown(row.format) + "` | " + cell(row.meaning) + " | " +
                    remedies_cell(row.remedies) + " |\n";
    }
    text +=
        "\n## What no message says\n\n| It shows as | Means | What to do |\n| --- | --- | --- |\n";
    for (const situation_row &row : situation_rows)
        text += std::string("| ") + cell(row.shows) + " | " + cell(row.meaning) + " | " +
                remedies_cell(row.remedies) + " |\n";
    return text;
}

std::string formats_text()
{
    json formats = json::array();
    for (const message_section &section : message_sections())
        for (const message_row &row : section.rows)
            formats.push_back(row.format);
    return formats.dump() + "\n";
}

} // namespace doctor
