// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/show_report.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "tools/fwpkg/condition_code.h"
#include "tools/fwpkg/part_data.h"
#include "tools/fwpkg/text.h"

namespace fwpkg {
namespace {

/// printf for the lines of this file, all of them short but for what is added as text.
[[gnu::format(printf, 1, 2)]] std::string line(const char *format, ...)
{
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string encryption_name(int encryption)
{
    if (encryption == encryption_none)
        return "in clear";
    if (encryption == encryption_rc4)
        return "enciphered";
    return "unknown encryption " + std::to_string(encryption);
}

std::string digest_verdict(const package_file &file)
{
    if (file.stage < read_stage::deciphered || !file.length_right)
        return "not looked at";
    return file.digest_right ? "right" : "WRONG, the data has " + hex_digest(file.digest);
}

std::string conditions_text(const part_entry &entry)
{
    if (entry.part.conditions_length == 0)
        return "none\n";
    const condition_text text = decompile_condition(entry.conditions());
    std::string result = (text.text.empty() ? "none" : text.text) + "\n";
    if (!text.exact)
        result += std::string("               (") +
                  (text.writable ? "some bytes are not shown as they are: "
                                 : "no text compiles to these bytes: ") +
                  hex(entry.conditions()) + ")\n";
    return result;
}

std::string feature_text(const feature &one)
{
    std::string result = printable(one.name) + " = \"" + printable(one.value) + "\"";
    return one.complete ? result : result + " (incomplete: the device does not find it)";
}

std::string features_text(const part_entry &entry)
{
    std::string result;
    for (const feature &each : list_features(entry.features()))
        result += (result.empty() ? "" : ", ") + feature_text(each);
    return (result.empty() ? "none" : result) + "\n";
}

std::string part_text(const part_entry &entry, const std::optional<part_sums> &sums)
{
    const package_part &part = entry.part;
    std::string result =
        line("\npart %d: %s (type %d)%s\n", entry.index, type_name(part.type).c_str(), part.type,
             (part.flags & part_flag_optional) != 0 ? ", optional" : "");
    result += line("  data         %" PRIu32 " bytes at %" PRIu32 "\n", part.size, part.offset);
    result += line("  actual size  %" PRIu32 "\n", part.actual_size);
    if (part.compress != 0)
        result += line("  compress     %" PRIu32 "\n", part.compress);
    if ((part.flags & ~part_flag_optional) != 0)
        result += line("  flags        %08" PRIx32 "\n", part.flags);
    result += "  conditions   " + conditions_text(entry);
    result += "  features     " + features_text(entry);
    if (sums) {
        result += "  CRC-32       " + hex_word(sums->crc32) + "\n";
        result += "  SHA-256      " + sums->sha256 + "\n";
    }
    return result;
}

} // namespace

std::string layout_text(const package_file &file)
{
    std::string result = "part  type            offset        size  actual size   room left\n";
    for (const part_entry &entry : file.parts) {
        const package_part &part = entry.part;
        result += line("%-4d  %-12s  %8" PRIu32 "  %10" PRIu32 "  %11" PRIu32 "  %10" PRId64 "\n",
                       entry.index, type_name(part.type).c_str(), part.offset, part.size,
                       part.actual_size, int64_t{part.actual_size} - int64_t{part.size});
    }
    result += line("table: %" PRIu32 " of %d bytes, %d left\n", file.table_end, block_size,
                   block_size - static_cast<int>(file.table_end));
    result += line("package: %zu of %zu bytes, %zu left, %s\n", file.size, package_capacity,
                   package_capacity - file.size, encryption_name(file.record.encryp).c_str());
    return result + "content identifier: " + content_identifier(file) + "\n";
}

std::string package_text(const package_file &file, const std::string &name,
                         const std::string &sha256)
{
    std::string result = printable(name) + ": " + count_of(file.size, "byte");
    if (file.stage == read_stage::nothing)
        return result + "\nSHA-256 " + sha256 + "\n";
    result += ", version " + std::to_string(file.record.version) + ", " +
              encryption_name(file.record.encryp) + "\n";
    result += line("size    %" PRIu32 " in the header, %s\n", file.record.size,
                   file.length_right ? "right" : "WRONG");
    result += "digest  " + content_identifier(file) + ", " + digest_verdict(file) + "\n";
    result += "SHA-256 " + sha256 + " of the file\n";
    if (file.stage == read_stage::table)
        result += "table   " + count_of(file.parts.size(), "part") + ", bytes 28 to " +
                  std::to_string(file.table_end) + "\n";
    const auto sums = sum_parts(file);
    for (size_t i = 0; i < file.parts.size(); i++)
        result += part_text(file.parts[i], sums[i]);
    return result;
}

std::string finding_text(const finding &one, bool colour)
{
    const bool error = one.level == severity::error;
    std::string level = error ? "error" : "warning";
    if (colour)
        level = (error ? "\033[1;31m" : "\033[1;35m") + level + "\033[0m";
    return level + ": " + one.place + ": " + one.message + "\n";
}

} // namespace fwpkg
