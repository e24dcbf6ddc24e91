// SPDX-License-Identifier: GPL-2.0-or-later
//
// What came of a run: collected from its operations and datagrams, then shown.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/simdev/runner.h"

namespace simdev {

struct stage_record {
    std::string name; ///< of the datagram: "WRITING", ..., or an error's text
    bool is_error;
    int64_t virtual_us;
};

struct partition_record {
    int64_t writes = 0; ///< trailers included
    int64_t bytes = 0;  ///< trailers included
    int64_t failed = 0;
};

struct gap {
    int64_t virtual_us = 0;
    int64_t real_us = 0;
};

struct run_summary {
    uint64_t operations = 0;
    int64_t virtual_us = 0;
    std::vector<stage_record> stages;
    std::map<int, partition_record> partitions; ///< those written to
    int64_t kicks = 0;                          ///< that the GPIO device accepted
    int64_t refused_kicks = 0;
    gap first_kick;  ///< from the start
    gap longest_gap; ///< between two kicks, the longest in virtual time
    std::optional<operation> script;
    std::optional<operation> end;                   ///< power cut, reset or hang
    std::map<std::string, int64_t> faults;          ///< operations that each played a part in
    std::array<std::vector<operation>, 2> received; ///< datagrams that arrived, by receiver
    int64_t last_kick_virtual_us = 0;
    int64_t last_kick_real_us = 0;
};

/// Adds one operation.
void add_operation(run_summary &summary, const operation &operation);

/// The last 16 bytes of a partition, judged.
struct trailer_state {
    uint32_t crc = 0;
    uint32_t length = 0;
    bool consistent = false; ///< magic and check word are right
    bool matches = false;    ///< and the CRC of the first `length` bytes is `crc`
};
trailer_state judge_trailer(std::string_view content);

/// The report, as text and as JSON.
std::string report_text(const run_summary &summary, const run_options &options,
                        const run_outcome &outcome);
nlohmann::json report_json(const run_summary &summary, const run_options &options,
                           const run_outcome &outcome);

/// "12.345 s".
std::string seconds_text(int64_t microseconds);

} // namespace simdev
