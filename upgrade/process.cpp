// SPDX-License-Identifier: GPL-2.0-or-later
#include "upgrade/process.h"

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "package/decrypt.h"
#include "package/selection.h"
#include "package/validate.h"
#include "platform/device.h"

namespace {

int refuse(const char *message)
{
    fprintf(stderr, "%s\n", message);
    return -1;
}

bool partition_size(void * /*context*/, int32_t type, uint64_t *size)
{
    const int fd = open(partition_device(type).text, O_WRONLY);
    if (fd < 0)
        return false;
    // A size that cannot be found is -1, which is larger than any part when unsigned.
    *size = static_cast<uint64_t>(lseek(fd, 0, SEEK_END));
    close(fd);
    return true;
}

// What is said of a mandatory part that refuses the package; of one that is not for this device
// nothing is.
void report_refusal(part_fault fault)
{
    if (fault == part_fault_partition)
        refuse("cannot open target device");
    else if (fault == part_fault_room)
        refuse("not enougth space on target device");
}

// Drops the parts that do not apply or fit and adds up the rest. False when the package is refused.
bool select_parts(package *record, uint32_t *sum)
{
    for (package_part &part : record->parts) {
        if (part.type < 0)
            break;
        const part_verdict verdict = judge_part(&part, partition_size, nullptr);
        if (verdict.refused) {
            report_refusal(verdict.fault);
            return false;
        }
        *sum += part.actual_size;
    }
    return true;
}

bool parts_are_present(const package *record, const iobuf *buffer)
{
    const int absent = first_absent_part(record, buffer);
    if (absent >= 0)
        fprintf(stderr, "data of part #%d is not in the package\n", absent);
    return absent < 0;
}

} // namespace

int process_package(upgrade_context *context)
{
    package *record = &context->package;
    iobuf *buffer = context->iobuf;
    const uint8_t *first_block = buffer->blocks[0];
    if (first_block == nullptr || read_package_head(record, first_block, buffer->block_size) < 0)
        return refuse("error reading package");
    if (decrypt_package(context, record, buffer) < 0)
        return refuse("decrypt package failed");
    if (valid_package(context, record, buffer) == 0)
        return refuse("invalid package");
    if (read_package_parts(record, first_block, buffer->block_size) < 0)
        return refuse("error reading package parts");
    dump_package(record);
    uint32_t sum = 0;
    if (!select_parts(record, &sum) || !parts_are_present(record, buffer))
        return -1;
    context->total = static_cast<int32_t>(sum);
    return 0;
}
