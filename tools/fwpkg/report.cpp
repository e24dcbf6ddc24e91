// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/fwpkg/report.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "tools/fwpkg/condition_code.h"
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

std::span<const uint8_t> header_digest(const package_file &file)
{
    return {file.record.checksum, package_checksum_size};
}

std::string conditions_text(const part_entry &entry)
{
    if (entry.part.conditions_length == 0)
        return "none\n";
    const condition_text text = decompile_condition(entry.conditions());
    std::string result = (text.text.empty() ? "none" : text.text) + "\n";
    if (!text.exact)
        result +=
            "               (no text compiles to these bytes: " + hex(entry.conditions()) + ")\n";
    return result;
}

std::string feature_text(const feature &feature)
{
    std::string result = printable(feature.name) + " = \"" + printable(feature.value) + "\"";
    return feature.complete ? result : result + " (incomplete: the device does not find it)";
}

std::string features_text(const part_entry &entry)
{
    std::string result;
    for (const feature &feature : list_features(entry.features()))
        result += (result.empty() ? "" : ", ") + feature_text(feature);
    return (result.empty() ? "none" : result) + "\n";
}

std::string part_text(const part_entry &entry)
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
    return result;
}

json part_json(const part_entry &entry)
{
    const package_part &part = entry.part;
    json result;
    result["index"] = entry.index;
    result["type"] = part.type;
    result["type_name"] = type_name(part.type);
    result["position"] = entry.position;
    result["header_size"] = entry.header_size;
    result["compress"] = part.compress;
    result["actual_size"] = part.actual_size;
    result["size"] = part.size;
    result["offset"] = part.offset;
    result["flags"] = part.flags;
    result["optional"] = (part.flags & part_flag_optional) != 0;
    const condition_text text = decompile_condition(entry.conditions());
    result["conditions"] = {
        {"bytes", hex(entry.conditions())}, {"text", text.text}, {"exact", text.exact}};
    result["features"] = json::array();
    for (const feature &feature : list_features(entry.features()))
        result["features"].push_back({{"name", printable(feature.name)},
                                      {"value", printable(feature.value)},
                                      {"complete", feature.complete}});
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
    return result + "content identifier: " + hex_digest(header_digest(file)) + "\n";
}

std::string package_text(const package_file &file, const std::string &name)
{
    std::string result = printable(name) + ": " + count_of(file.size, "byte");
    if (file.stage == read_stage::nothing)
        return result + "\n";
    result += ", version " + std::to_string(file.record.version) + ", " +
              encryption_name(file.record.encryp) + "\n";
    result += line("size    %" PRIu32 " in the header, %s\n", file.record.size,
                   file.length_right ? "right" : "WRONG");
    result += "digest  " + hex_digest(header_digest(file)) + ", " + digest_verdict(file) + "\n";
    if (file.stage == read_stage::table)
        result += "table   " + count_of(file.parts.size(), "part") + ", bytes 28 to " +
                  std::to_string(file.table_end) + "\n";
    for (const part_entry &entry : file.parts)
        result += part_text(entry);
    return result;
}

json package_json(const package_file &file, const std::string &name)
{
    json result;
    result["file"] = printable(name);
    result["bytes"] = file.size;
    result["problem"] = file.problem.empty() ? json() : json(file.problem);
    if (file.stage == read_stage::nothing)
        return result;
    result["version"] = file.record.version;
    result["encryption"] = file.record.encryp;
    result["size"] = file.record.size;
    result["size_right"] = file.length_right;
    result["digest"] = hex_digest(header_digest(file));
    const bool digested = file.stage >= read_stage::deciphered && file.length_right;
    result["digest_right"] = digested ? json(file.digest_right) : json();
    result["parts"] = json::array();
    for (const part_entry &entry : file.parts)
        result["parts"].push_back(part_json(entry));
    return result;
}

std::string finding_text(const finding &finding, bool colour)
{
    const bool error = finding.level == severity::error;
    std::string level = error ? "error" : "warning";
    if (colour)
        level = (error ? "\033[1;31m" : "\033[1;35m") + level + "\033[0m";
    return level + ": " + finding.place + ": " + finding.message + "\n";
}

json finding_json(const finding &finding)
{
    json numbers = json::object();
    for (const auto &[name, number] : finding.numbers)
        numbers[name] = number;
    return {{"severity", finding.level == severity::error ? "error" : "warning"},
            {"place", finding.place},
            {"message", finding.message},
            {"numbers", numbers}};
}

std::string json_text(const json &document)
{
    return document.dump(2) + "\n";
}

} // namespace fwpkg
