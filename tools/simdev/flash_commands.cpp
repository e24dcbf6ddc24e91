// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/flash_commands.h"

#include <fstream>

#include "tools/common/failure.h"
#include "tools/image/reader.h"
#include "tools/simdev/folder.h"

namespace simdev {

namespace fs = std::filesystem;

std::string add_dump(dump_files &dumps, const std::string &pair)
{
    if (pair.size() < 3 || pair[0] < '0' || pair[0] > '9' || pair[1] != '=')
        return "\"" + pair + "\" is not N=DUMP, with a partition's number from 0 to 9";
    if (!dumps.emplace(pair[0] - '0', pair.substr(2)).second)
        return std::string("partition ") + pair[0] + " is given twice";
    return {};
}

std::string describe_dumps(const dump_files &dumps)
{
    std::string text = "# A simulated device made of dumps.\n\n[partitions]\n";
    for (const auto &[number, path] : dumps)
        text +=
            std::to_string(number) + " = " + std::to_string(image::file_reader(path).size) + "\n";
    const std::string_view usual = default_device_text;
    return text + "\n" + std::string(usual.substr(usual.find("[configuration]")));
}

void check_dumps(const dump_files &dumps, const std::string &text, const std::string &name)
{
    const device device = parse_device(text, name);
    for (const auto &[number, path] : dumps) {
        const uint64_t size = image::file_reader(path).size;
        const auto partition = device.partitions.find(number);
        if (partition == device.partitions.end())
            throw failure(name + ": has no partition " + std::to_string(number) + " for " +
                          path.string());
        if (partition->second != size)
            throw failure(path.string() + ": has " + std::to_string(size) + " bytes, partition " +
                          std::to_string(number) + " of " + name + " has " +
                          std::to_string(partition->second));
    }
}

void load_dumps(const fs::path &folder, const dump_files &dumps)
{
    const std::map<int, fs::path> partitions = partition_files(folder);
    for (const auto &[number, path] : dumps) {
        const image::reader reader = image::file_reader(path);
        std::ofstream file(partitions.at(number), std::ios::binary | std::ios::trunc);
        image::each_piece(reader, reader.size, [&](uint64_t, std::span<const uint8_t> piece) {
            file.write(reinterpret_cast<const char *>(piece.data()),
                       static_cast<std::streamsize>(piece.size()));
            return file.good();
        });
        file.close();
        if (!file)
            throw failure(partitions.at(number).string() + ": cannot be written");
    }
}

int report_status(const fs::path &folder, const std::vector<doctor::package_choice> &packages,
                  bool as_json)
{
    read_folder(folder); // says what is no device
    std::vector<fs::path> files;
    for (const auto &[number, path] : partition_files(folder))
        files.push_back(path);
    return doctor::report_partitions("simdev", files, packages, as_json);
}

} // namespace simdev
