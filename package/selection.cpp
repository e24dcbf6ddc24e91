// SPDX-License-Identifier: GPL-2.0-or-later
#include "package/selection.h"

#include "package/conditions.h"
#include "platform/syscfg.h"

namespace {

// Notes the fault unless there is one already, and drops an optional part: it then needs no room
// and is not written. Whether the judging goes on.
bool fail_part(package_part *part, part_verdict *verdict, part_fault fault)
{
    if (verdict->fault == part_fault_none)
        verdict->fault = fault;
    verdict->refused = (part->flags & part_flag_optional) == 0;
    if (verdict->refused)
        return false;
    part->actual_size = 0;
    part->size = 0;
    return true;
}

part_fault partition_fault(const package_part *part, partition_size_function partition_size,
                           void *context)
{
    uint64_t size = 0;
    if (!partition_size(context, part->type, &size))
        return part_fault_partition;
    return size < part->actual_size ? part_fault_room : part_fault_none;
}

bool part_is_present(const package_part *part, const iobuf *buffer)
{
    const auto size = static_cast<int32_t>(part->size);
    if (!part_type_is_writable(part->type) || size <= 0)
        return true;
    const int64_t first = part->offset / static_cast<uint32_t>(buffer->block_size);
    const int64_t count = (int64_t{size} + buffer->block_size - 1) / buffer->block_size;
    const int64_t end = first + count;
    if (end > buffer->count)
        return false;
    for (int64_t index = first; index < end; index++) {
        if (buffer->blocks[index] == nullptr)
            return false;
    }
    return true;
}

} // namespace

part_verdict judge_part(package_part *part, partition_size_function partition_size, void *context)
{
    part_verdict verdict = {.fault = part_fault_none, .refused = false};
    if (eval_conditions(part->conditions, part->conditions_length, getsyscfg) == 0 &&
        !fail_part(part, &verdict, part_fault_conditions))
        return verdict;
    if (eval_features(static_cast<uint32_t>(part->type), part->features, part->features_length) ==
            0 &&
        !fail_part(part, &verdict, part_fault_requirement))
        return verdict;
    if (part->actual_size == 0)
        return verdict;
    const part_fault fault = partition_fault(part, partition_size, context);
    if (fault != part_fault_none)
        fail_part(part, &verdict, fault);
    return verdict;
}

int first_absent_part(const package *record, const iobuf *buffer)
{
    for (int index = 0; index < package_part_count && record->parts[index].type >= 0; index++) {
        if (!part_is_present(&record->parts[index], buffer))
            return index;
    }
    return -1;
}
