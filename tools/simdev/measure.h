// SPDX-License-Identifier: GPL-2.0-or-later
//
// What came of a run, collected from its operations, and what `simdev run` says of it.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/simdev/launch.h"
#include "tools/simdev/report.h"

namespace simdev {

/// A time without a kick that fed the watchdog: sleeps and waits, as virtual time counts them, and
/// what else passed here, which a device takes longer for.
struct unfed_time {
    int64_t virtual_us = 0;
    int64_t work_us = 0;
    [[nodiscard]] int64_t sum() const
    {
        return virtual_us + work_us;
    }
};

/// A piece of the run; one that is come to again, as writing is after a failed attempt, goes on.
struct phase_record {
    std::string name;
    int64_t kicks = 0;
    unfed_time longest; ///< within the phase: its ends count as kicks
};

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

struct run_record {
    uint64_t operations = 0; ///< the start is one: 1 says that the platform was never touched
    int64_t virtual_us = 0;
    std::vector<stage_record> stages;
    std::map<int, partition_record> partitions; ///< those written to
    int64_t kicks = 0;                          ///< that fed the watchdog
    int64_t kicks_without_line = 0;             ///< accepted, for a line below 0: they feed nothing
    int64_t kicks_refused = 0;
    std::optional<int64_t> first_kick_us; ///< virtual
    std::vector<phase_record> phases;     ///< those that were reached, in order
    unfed_time longest;                   ///< over all, the start and the end of the run included
    std::string longest_phases;           ///< "checks" or "download (ftp) to writing"
    std::optional<sim_operation> script;
    std::optional<sim_operation> end; ///< power cut, reset or hang
    std::map<int, int64_t> faults;    ///< index -> operations it played a part in
    std::array<std::vector<sim_operation>, 2> datagrams; ///< that arrived, by receiver
};

/// Takes a run's operations one after the other.
class measure {
public:
    /// `protocol` names the download; `fast` as in the run.
    measure(const std::string &protocol, bool fast);

    void take(const sim_operation &operation);

    /// What there is so far; its end counts as the end of the last phase.
    [[nodiscard]] run_record record() const;

private:
    void take_kick(const sim_operation &operation);
    void take_datagram(const sim_operation &operation);
    void enter_phase(const sim_operation &operation);
    [[nodiscard]] unfed_time since(const sim_operation &from) const;
    void close_longest(run_record &record) const;

    run_record record_;
    std::string download_;
    bool fast_;
    size_t phase_ = 0;        // in record_.phases
    size_t fed_phase_ = 0;    // the phase of the last kick that fed
    sim_operation fed_ = {};  // the last kick that fed, or nothing: the start
    sim_operation mark_ = {}; // the same or the phase's beginning
    sim_operation last_ = {};
};

/// Judges the partitions that were written to, in the folder as the run left it, and reads what the
/// program said. Throws failure.
report report_run(const run_record &record, const run_options &options, const run_outcome &outcome);

} // namespace simdev
