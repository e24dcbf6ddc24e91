// SPDX-License-Identifier: GPL-2.0-or-later
//
// How the judgement of partitions is shown.
#include <cstdio>

#include "flash/trailer.h"
#include "tools/common/failure.h"
#include "tools/common/key.h"
#include "tools/doctor/flash_judge.h"
#include "tools/fwpkg/text.h"

namespace doctor {

namespace {

using fwpkg::hex_word;

std::string trailer_text(const partition_verdict &verdict)
{
    const image::trailer_verdict &trailer = verdict.trailer;
    std::string text = image::name(trailer.state);
    if (verdict.size < sizeof(partition_trailer))
        return text + ": less than 16 bytes";
    text += ": crc " + hex_word(trailer.crc) + ", length " + std::to_string(trailer.length) +
            ", check " + hex_word(trailer.check) + (trailer.check_right ? " (right)" : " (wrong)") +
            ", magic " + hex_word(trailer.magic) + (trailer.magic_right ? " (right)" : " (wrong)");
    if (trailer.state != image::trailer_state::crc_wrong)
        return text;
    return text + (trailer.content_crc
                       ? "; the bytes have the CRC " + hex_word(*trailer.content_crc)
                       : "; the length is beyond the end");
}

std::string content_text(const partition_verdict &verdict, const std::vector<known_part> &parts)
{
    std::string text = image::name(verdict.content);
    if (verdict.holds)
        text += ": " + printable(parts[*verdict.holds].name());
    else if (verdict.content == image::content_state::unknown && parts.empty())
        text += ": no package to compare with";
    return text;
}

std::string owners_text(const image::run &run, const std::vector<known_part> &parts)
{
    std::string text;
    for (const size_t owner : run.owners)
        text += (text.empty() ? "" : ", or ") + printable(parts[owner].name());
    if (text.empty())
        text = run.erased ? "erased" : "of none of the packages";
    return text;
}

/// The package's key, with a line on standard error for what is odd about it.
std::optional<std::string> key_of(const char *program, const package_choice &choice)
{
    if (choice.key_file.empty())
        return std::nullopt;
    const std::string key = read_key_file(choice.key_file);
    for (const std::string &oddity : key_oddities(key))
        fprintf(stderr, "%s: warning: %s: %s\n", program,
                printable(choice.key_file.string()).c_str(), oddity.c_str());
    return key;
}

} // namespace

std::string verdict_text(const partition_verdict &verdict, const std::vector<known_part> &parts)
{
    const bool valid = verdict.trailer.state == image::trailer_state::valid;
    const bool deceives = verdict.trailer.state == image::trailer_state::crc_wrong;
    std::string text = printable(verdict.path) + "\n";
    const auto add = [&text](const char *name, const std::string &what) {
        std::string label(name);
        label.resize(13, ' ');
        text += "  " + label + what + "\n";
    };
    add("size", std::to_string(verdict.size) + " bytes");
    add("trailer", trailer_text(verdict));
    add("content", content_text(verdict, parts));
    if (!parts.empty()) {
        for (const image::run &run : verdict.comparison.runs)
            add("", "blocks " + std::to_string(run.first) + " to " +
                        std::to_string(run.first + run.count - 1) + ": " + owners_text(run, parts));
    }
    add("boot loader", std::string("that checks the CRC: ") + (valid ? "starts it" : "refuses it"));
    add("", std::string("that checks the check word alone: ") +
                (valid      ? "starts it"
                 : deceives ? "STARTS IT, though it is not whole"
                            : "refuses it"));
    add("what to do", printable(verdict.advice));
    return text;
}

json verdict_json(const partition_verdict &verdict, const std::vector<known_part> &parts)
{
    const auto part_json = [&parts](size_t index) {
        return json{{"package", printable(parts[index].package)},
                    {"part", parts[index].index},
                    {"type", parts[index].type}};
    };
    const image::trailer_verdict &trailer = verdict.trailer;
    const auto run_json = [&part_json](const image::run &run) -> json {
        return {{"first", run.first},
                {"count", run.count},
                {"parts", json::array_of(run.owners, part_json)},
                {"erased", run.erased}};
    };
    const bool valid = trailer.state == image::trailer_state::valid;
    return {
        {"path", printable(verdict.path)},
        {"size", verdict.size},
        {"trailer",
         {{"state", image::name(trailer.state)},
          {"crc", hex_word(trailer.crc)},
          {"length", trailer.length},
          {"check", hex_word(trailer.check)},
          {"magic", hex_word(trailer.magic)},
          {"check_right", trailer.check_right},
          {"magic_right", trailer.magic_right},
          {"content_crc", trailer.content_crc ? json(hex_word(*trailer.content_crc)) : json()}}},
        {"content", image::name(verdict.content)},
        {"holds", verdict.holds ? part_json(*verdict.holds) : json()},
        {"runs", json::array_of(verdict.comparison.runs, run_json)},
        {"boot_loader",
         {{"crc", valid}, {"check_word_alone", trailer.state != image::trailer_state::none}}},
        {"whole", verdict.whole},
        {"advice", printable(verdict.advice)}};
}

int report_partitions(const char *program, const std::vector<std::filesystem::path> &dumps,
                      const std::vector<package_choice> &packages, bool as_json)
{
    int status = exit_good;
    // What cannot be read is said, and the rest goes on.
    const auto attempt = [&](const auto &action) {
        try {
            action();
        } catch (const failure &error) {
            fprintf(stderr, "%s: %s\n", program, printable(error.what()).c_str());
            status = exit_trouble;
        }
    };
    std::vector<known_part> parts;
    for (const package_choice &choice : packages)
        attempt([&] {
            for (known_part &part : read_parts(choice.path, key_of(program, choice)))
                parts.push_back(std::move(part));
        });
    json verdicts = json::array();
    for (const std::filesystem::path &dump : dumps)
        attempt([&] {
            const partition_verdict verdict = judge_partition(dump, parts);
            if (!verdict.whole && status == exit_good)
                status = exit_bad;
            if (as_json)
                verdicts.push_back(verdict_json(verdict, parts));
            else
                fputs(verdict_text(verdict, parts).c_str(), stdout);
        });
    if (as_json) {
        // docs/json.md
        const json document = {{"format", 1}, {"partitions", verdicts}};
        puts(document.dump(2).c_str());
    }
    return status;
}

} // namespace doctor
