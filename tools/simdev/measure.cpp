// SPDX-License-Identifier: GPL-2.0-or-later
#include "tools/simdev/measure.h"

#include <algorithm>

#include "platform/device.h"

namespace simdev {

namespace {

constexpr const char *script_phase = "script";
constexpr const char *verifying_phase = "verifying";

void keep_longer(unfed_time &longest, const unfed_time &candidate)
{
    if (candidate.sum() > longest.sum())
        longest = candidate;
}

} // namespace

measure::measure(const std::string &protocol, bool fast)
    : download_("download (" + protocol + ")"), fast_(fast)
{
    record_.phases.push_back({download_, 0, {}});
}

unfed_time measure::since(const sim_operation &from) const
{
    const int64_t waited = last_.virtual_us - from.virtual_us;
    const int64_t passed = last_.real_us - from.real_us;
    // What was counted and not waited for is not in the real time.
    return {waited, fast_ ? passed : std::max<int64_t>(passed - waited, 0)};
}

// Which phase the operation ends in, and so belongs to.
void measure::enter_phase(const sim_operation &operation)
{
    const std::string &now = record_.phases[phase_].name;
    std::string next = now;
    if (operation.op == op_script)
        next = script_phase;
    else if (now == script_phase)
        next = "checks";
    if (operation.text_view() == std::string(status_stage) + "WRITING")
        next = "writing";
    else if (operation.text_view() == std::string(status_stage) + "VERIFYING")
        next = verifying_phase;
    else if (now == verifying_phase && operation.op == op_sleep)
        next = "end"; // the rest before "DONE": reading back does not sleep
    if (next == now)
        return;
    const auto found = std::ranges::find(record_.phases, next, &phase_record::name);
    phase_ = static_cast<size_t>(found - record_.phases.begin());
    if (found == record_.phases.end())
        record_.phases.push_back({next, 0, {}});
    mark_ = last_;
}

void measure::close_longest(run_record &record) const
{
    const unfed_time unfed = since(fed_);
    if (unfed.sum() <= record.longest.sum())
        return;
    record.longest = unfed;
    record.longest_phases = record.phases[fed_phase_].name;
    if (fed_phase_ != phase_)
        record.longest_phases += " to " + record.phases[phase_].name;
}

void measure::take_kick(const sim_operation &operation)
{
    if (operation.error != 0)
        record_.kicks_refused++;
    else if (operation.line < 0)
        record_.kicks_without_line++;
    if (operation.error != 0 || operation.line < 0)
        return;
    close_longest(record_);
    record_.kicks++;
    record_.phases[phase_].kicks++;
    if (!record_.first_kick_us)
        record_.first_kick_us = operation.virtual_us;
    fed_ = mark_ = operation;
    fed_phase_ = phase_;
}

void measure::take_datagram(const sim_operation &operation)
{
    // Each text goes to two receivers; the first is enough to know it.
    const bool first = operation.target == std::string_view(status_receivers[0]);
    if (operation.error == 0)
        record_.datagrams.at(first ? 0 : 1).push_back(operation);
    for (const std::string_view prefix : {status_stage, status_error})
        if (first && operation.text_view().starts_with(prefix))
            record_.stages.push_back({std::string(operation.text_view().substr(prefix.size())),
                                      prefix == status_error, operation.virtual_us});
}

void measure::take(const sim_operation &operation)
{
    enter_phase(operation);
    last_ = operation;
    record_.operations = operation.n;
    record_.virtual_us = operation.virtual_us;
    if (operation.fault >= 0)
        record_.faults[operation.fault]++;
    keep_longer(record_.phases[phase_].longest, since(mark_));
    const std::string_view target = operation.target;
    if (operation.op == op_kick) {
        take_kick(operation);
    } else if (operation.op == op_datagram) {
        take_datagram(operation);
    } else if (operation.op == op_write && target.starts_with(partition_prefix)) {
        partition_record &partition = record_.partitions[target.back() - '0'];
        partition.writes++;
        partition.failed += operation.error == 0 ? 0 : 1;
        partition.bytes += operation.error == 0 ? operation.result : 0;
    } else if (operation.op == op_script) {
        record_.script = operation;
    } else if (operation.op == op_power_cut || operation.op == op_reset ||
               operation.op == op_hang) {
        record_.end = operation;
    }
}

run_record measure::record() const
{
    run_record record = record_;
    close_longest(record);
    return record;
}

} // namespace simdev
